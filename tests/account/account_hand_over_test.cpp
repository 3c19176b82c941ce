#include <gtest/gtest.h>

#include <filesystem>

#include "account_data_manager.h"
#include "account_fixture.h"
#include "captured_log.h"
#include "file_migrate_client.h"
#include "migrate_pause.h"
#include "os_account_manager.h"
#include "platform_control/device_state.h"

namespace {

using namespace Zarvo;
using namespace Zarvo::UpdateEngine;

const std::string TARGET_100 =
    "/data/app/el2/100/base/com.corvan.zmx.corvanid/haps/zmxcore_account_backup/files/ath/ce/";

std::vector<uint32_t> g_pauses;

void RecordPause(uint32_t milliseconds) {
    g_pauses.push_back(milliseconds);
}

// Lines of the hand-over itself, without those of the migrate client below it.
std::vector<Testing::LogLine> HandOverLines() {
    std::vector<Testing::LogLine> lines;
    for (auto &line : Testing::PluginLogLines()) {
        if (line.text.rfind("MoveFileToCvid", 0) == 0 || line.text.rfind("CreateFileParam", 0) == 0 ||
            line.text.rfind("GetBundleMgr", 0) == 0) {
            lines.push_back(line);
        }
    }
    return lines;
}

// The hand-over against a device whose migrate service is not running: every request fails to connect.
class AccountHandOverTest : public testing::Test {
protected:
    void SetUp() override {
        Host::ResetToTypicalDevice();
        g_pauses.clear();
        g_migratePause = RecordPause;
        Testing::ResetCaptures();
    }

    void TearDown() override { g_migratePause = SleepMilliseconds; }

    // Runs the restore up to the saved export file of the user's account.
    bool Restore(AccountDataManager &manager, int userId = 100) {
        Testing::WriteUserAccountsDb(userId, Testing::CvidAccountDb());
        bool result = manager.DoRestoreData();
        tempFile_ = Testing::UserBackDir(userId) + ACCOUNT_JSON_NAME;
        return result;
    }

    std::string tempFile_;
};

TEST_F(AccountHandOverTest, AnAppNotInstalledForTheUserSendsNoRequest) {
    Host::SetInstalledBundles({});
    AccountDataManager manager;
    EXPECT_FALSE(Restore(manager));
    EXPECT_EQ(HandOverLines(),
              (std::vector<Testing::LogLine>{{6,
                                              "CreateFileParam failed to get bundle info for "
                                              "com.corvan.zmx.corvanid due to errCode 8521221"}}));
    EXPECT_EQ(Testing::PluginLogTexts().back(), "DoRestoreData failed, Process the JSON file return false.");
    EXPECT_EQ(Testing::CountPluginLines("PrepareDir"), 0u);
    EXPECT_EQ(Testing::CountPluginLines("CopyAllFile"), 0u);
    EXPECT_TRUE(g_pauses.empty());
    // The export file is left for the final clean-up of the work directory.
    EXPECT_EQ(Testing::ReadFileBytes(tempFile_),
              R"({"authtoken":"a1b2","extras":[{"id":7,"key":"nick","value":"Al"},{"id":9,"key":"uid",)"
              R"("value":"2850086"}],"id":3,"locale":"en_US","name":"alice","type":"com.corvan.cvid"})");
}

TEST_F(AccountHandOverTest, UnreachableServicesAreLoggedAndNotRetried) {
    Host::InjectFault("GetSystemAbilityManager", 0, 1);
    AccountDataManager manager;
    EXPECT_FALSE(Restore(manager));
    EXPECT_EQ(HandOverLines(),
              (std::vector<Testing::LogLine>{{6, "GetBundleMgr GetSystemAbilityManager is null"},
                                             {6, "CreateFileParam can not get bundleMgr."}}));
    Testing::ResetCaptures();
    Host::InjectFault("GetSystemAbility", 0, 1);
    EXPECT_FALSE(manager.MoveFileToCvid());
    EXPECT_EQ(HandOverLines(),
              (std::vector<Testing::LogLine>{{6, "GetBundleMgr GetSystemAbility is null"},
                                             {6, "CreateFileParam can not get bundleMgr."}}));
    EXPECT_EQ(Testing::CountPluginLines("CopyAllFile"), 0u);
}

TEST_F(AccountHandOverTest, WithoutAnExportFileNothingIsAsked) {
    AccountDataManager manager;
    EXPECT_FALSE(manager.MoveFileToCvid());
    EXPECT_EQ(HandOverLines(),
              (std::vector<Testing::LogLine>{{6, "MoveFileToCvid failed, tempJsonFilePath is empty."}}));
    EXPECT_EQ(Host::CallCount("GetBundleInfo"), 0);
}

TEST_F(AccountHandOverTest, AServiceThatNeverAnswersGetsFourAttemptsOfBothRequests) {
    AccountDataManager manager;
    EXPECT_FALSE(Restore(manager));
    const std::string retry = "MoveFileToCvid failed, MkDir result " + std::to_string(MIGRATE_ERR_CONNECT) +
                              ", MoveFile result " + std::to_string(MIGRATE_ERR_CONNECT) +
                              ", will retry after 10 milliseconds";
    EXPECT_EQ(
        HandOverLines(),
        (std::vector<Testing::LogLine>{
            {4, retry},
            {4, retry},
            {4, retry},
            {6, "MoveFileToCvid failed, after retry 3 times, from : " + tempFile_ + ", to : " + TARGET_100},
        }));
    EXPECT_EQ(Testing::CountPluginLines("PrepareDir : " + TARGET_100), 4u);
    EXPECT_EQ(Testing::CountPluginLines("Compose CopyAllFile src: " + tempFile_ + ", dst: " + TARGET_100 +
                                        "account_manager_db.json"),
              4u);
    EXPECT_EQ(Host::CallCount("GetBundleInfo"), 1);
    EXPECT_EQ(Testing::PluginLogTexts().back(), "DoRestoreData failed, Process the JSON file return false.");
}

TEST_F(AccountHandOverTest, AnExistingTargetDirectoryIsNotRequested) {
    std::filesystem::create_directories(TARGET_100);
    AccountDataManager manager;
    EXPECT_FALSE(Restore(manager));
    EXPECT_EQ(Testing::CountPluginLines("PrepareDir"), 0u);
    EXPECT_EQ(
        Testing::CountPluginLines("MoveFileToCvid failed, MkDir result 0, MoveFile result " +
                                  std::to_string(MIGRATE_ERR_CONNECT) + ", will retry after 10 milliseconds"),
        3u);
}

TEST_F(AccountHandOverTest, AnotherUserGetsItsOwnDirectoryAndBundleQuery) {
    AccountSA::OsAccountInfo user(101, "second", AccountSA::OsAccountType::NORMAL, 101);
    user.SetIsActived(true);
    Host::SetOsAccounts({user});
    Host::SetInstalledBundles({{"com.corvan.zmx.corvanid", 10040, {101}}});
    AccountDataManager manager;
    EXPECT_FALSE(Restore(manager, 101));
    std::string dir;
    manager.GetCurrentCvidPath(dir);
    EXPECT_EQ(dir,
              "/data/app/el2/101/base/com.corvan.zmx.corvanid/haps/zmxcore_account_backup/files/ath/ce/");
    EXPECT_EQ(Testing::CountPluginLines("to : " + dir), 1u);
    FileParam param{};
    ASSERT_TRUE(manager.CreateFileParam(param));
    EXPECT_EQ(param.uid, "20210040");
    EXPECT_EQ(param.gid, "20210040");
    EXPECT_EQ(param.perm, "0700");
    EXPECT_EQ(param.recurseOpt, RecurseOpt::RECURSE_ALL);
    EXPECT_EQ(param.dstFile, "");

    Host::SetInstalledBundles({{"com.corvan.zmx.corvanid", 10040, {100}}});
    FileParam untouched{};
    untouched.uid = "kept";
    EXPECT_FALSE(manager.CreateFileParam(untouched));
    EXPECT_EQ(untouched.uid, "kept");
}

}  // namespace
