#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>

#include "account_data_manager.h"
#include "account_fixture.h"
#include "captured_log.h"
#include "migrate_service/migrate_service.h"
#include "os_account_manager.h"
#include "platform_control/device_state.h"

namespace {

using namespace Zarvo;
using namespace Zarvo::UpdateEngine;
using Testing::LogLine;

std::string TargetDir(int userId) {
    return "/data/app/el2/" + std::to_string(userId) +
           "/base/com.corvan.zmx.corvanid/haps/zmxcore_account_backup/files/ath/ce/";
}

// What the descriptors this process holds name, sorted: the numbers themselves may move, as a
// service started again opens its roots anew.
std::multiset<std::string> OpenDescriptors() {
    std::multiset<std::string> open;
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        ADD_FAILURE() << "cannot list /proc/self/fd";
        return open;
    }
    for (dirent *entry; (entry = readdir(dir)) != nullptr;) {
        if (entry->d_name[0] == '.' || std::atoi(entry->d_name) == dirfd(dir)) {
            continue;
        }
        char target[4096] = {};
        (void)!readlink(("/proc/self/fd/" + std::string(entry->d_name)).c_str(), target, sizeof(target) - 1);
        open.insert(target);
    }
    closedir(dir);
    return open;
}

// The account restore against the real migrate service running in this process.
class AccountRestoreEndToEndTest : public testing::Test {
protected:
    void SetUp() override {
        Host::ResetToTypicalDevice();
        Testing::ResetCaptures();
        std::string error;
        ASSERT_TRUE(service_.Start(error)) << error;
    }

    void TearDown() override { service_.Stop(); }

    // Runs the restore of the phone's accounts for the user; the account database must stay as it was.
    bool Restore(int userId = 100) {
        std::string db = Testing::WriteUserAccountsDb(userId, Fixtures::SamplePhoneAccounts());
        std::string before = Testing::ReadFileBytes(db);
        Testing::ResetCaptures();
        AccountDataManager manager;
        bool result = manager.DoRestoreData();
        EXPECT_EQ(manager.IsAdminUser(), userId == 100);
        EXPECT_EQ(Testing::ReadFileBytes(db), before);
        EXPECT_FALSE(std::filesystem::exists(db + "-wal"));
        return result;
    }

    // Lines of the hand-over itself, without those of the migrate client below it.
    static std::vector<LogLine> HandOverLines() {
        std::vector<LogLine> lines;
        for (auto &line : Testing::PluginLogLines()) {
            for (const char *prefix : {"MoveFileToCvid", "CreateFileParam", "GetBundleMgr"}) {
                if (line.text.rfind(prefix, 0) == 0) {
                    lines.push_back(line);
                }
            }
        }
        return lines;
    }

    static LogLine Success(int userId = 100) {
        return {4, "MoveFileToCvid success, from : " + Testing::UserBackDir(userId) + ACCOUNT_JSON_NAME +
                       ", to : " + TargetDir(userId)};
    }

    static void ExpectOwnedByTheApp(const std::string &path, uid_t uid) {
        struct stat status {};
        ASSERT_EQ(stat(path.c_str(), &status), 0) << path;
        EXPECT_EQ(status.st_uid, uid) << path;
        EXPECT_EQ(status.st_gid, uid) << path;
        EXPECT_EQ(status.st_mode & 07777, 0700u) << path;
    }

    const std::string tempFile_ = Testing::UserBackDir(100) + ACCOUNT_JSON_NAME;
    Host::MigrateService service_;
};

TEST_F(AccountRestoreEndToEndTest, TheAccountLandsInTheUsersAppDirectoryOwnedByTheApp) {
    const std::string expected =
        "{\"authtoken\":"
        "\"CgB6e3x9QW8xY2M0ZTYtYjQ1Ny00ZmE2LWE0NDctNTg4ZDE2MmU2ZjE1EhAxNzAwMDAwMDAwMDAwMDAwGiQ2YjJkZTk1"
        "Ni1hNGJmLTQ0ZTQtOTk2Zi1lNjQ1YjhiOGQ5YmQiBnpoX0NO\",\"extras\":[{\"id\":9,\"key\":\"countryCode\","
        "\"value\":\"CN\"},{\"id\":8,\"key\":\"nickName\",\"value\":\"李伟\"},{\"id\":7,\"key\":\"userId\","
        "\"value\":\"2850086000123456789\"}],\"id\":3,\"locale\":\"zh_CN_#Hans\",\"name\":\"13800138000\","
        "\"type\":\"com.corvan.cvid\"}";
    for (int userId : {100, 101}) {
        AccountSA::OsAccountInfo user(userId, "user", AccountSA::OsAccountType::NORMAL, userId);
        user.SetIsActived(true);
        Host::SetOsAccounts({user});
        Host::SetInstalledBundles({{"com.corvan.zmx.corvanid", 10040, {userId}}});
        ASSERT_TRUE(Restore(userId));
        const std::string target = TargetDir(userId) + ACCOUNT_JSON_NAME;
        EXPECT_EQ(Testing::ReadFileBytes(Testing::UserBackDir(userId) + ACCOUNT_JSON_NAME), expected);
        EXPECT_EQ(Testing::ReadFileBytes(target), expected);
        // The app's uid for user U is U * 200000 + its app id.
        ExpectOwnedByTheApp(target, userId * 200000 + 10040);
        ExpectOwnedByTheApp(TargetDir(userId), userId * 200000 + 10040);
        EXPECT_EQ(HandOverLines(), (std::vector<LogLine>{Success(userId)}));
    }
}

// The plug-in lives in a long-running server: a restore must give back every descriptor it opened.
// Both counts are taken with the service stopped, after a first restore has made whatever the
// process keeps for good.
TEST_F(AccountRestoreEndToEndTest, ARestoreLeavesNoDescriptorOpen) {
    ASSERT_TRUE(Restore());
    service_.Stop();
    const std::multiset<std::string> before = OpenDescriptors();
    std::string error;
    ASSERT_TRUE(service_.Start(error)) << error;
    ASSERT_TRUE(Restore());
    service_.Stop();
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(AccountRestoreEndToEndTest, AServiceThatFailsEveryRequestGetsFourAttempts) {
    service_.Faults().Add({std::nullopt, Host::FaultAction::FAIL, -1, 5, 0, -1});
    // A target directory that is already there is not requested: its result counts as 0.
    for (bool dirExists : {false, true}) {
        if (dirExists) {
            std::filesystem::create_directories(TargetDir(100));
        }
        service_.Journal().Clear();
        EXPECT_FALSE(Restore());
        const LogLine retry{4, "MoveFileToCvid failed, MkDir result " + std::string(dirExists ? "0" : "-1") +
                                   ", MoveFile result -1, will retry after 10 milliseconds"};
        EXPECT_EQ(HandOverLines(),
                  (std::vector<LogLine>{retry,
                                        retry,
                                        retry,
                                        {6, "MoveFileToCvid failed, after retry 3 times, from : " +
                                                tempFile_ + ", to : " + TargetDir(100)}}));
        EXPECT_EQ(Testing::PluginLogTexts().back(),
                  "DoRestoreData failed, Process the JSON file return false.");
        EXPECT_EQ(service_.Journal().Entries().size(), dirExists ? 4u : 8u);
        EXPECT_FALSE(std::filesystem::exists(TargetDir(100) + ACCOUNT_JSON_NAME));
    }
    // The bundle manager is asked once per restore, not per attempt.
    EXPECT_EQ(Host::CallCount("GetBundleInfo"), 2);
}

TEST_F(AccountRestoreEndToEndTest, AFailedDirectoryRequestFailsTheAttemptAndBothAreRepeated) {
    service_.Faults().Add(
        {static_cast<int32_t>(Host::MigrateOp::PREPARE_DIR), Host::FaultAction::FAIL, 13, 13, 0, 1});
    EXPECT_TRUE(Restore());
    auto lines = HandOverLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text.rfind("MoveFileToCvid failed, MkDir result 13, MoveFile result ", 0), 0u)
        << lines[0].text;
    EXPECT_EQ(lines[1], Success());
    EXPECT_EQ(Testing::CountPluginLines("PrepareDir : " + TargetDir(100)), 2u);
    ExpectOwnedByTheApp(TargetDir(100) + ACCOUNT_JSON_NAME, 100 * 200000 + Host::ACCOUNT_APP_ID);
}

TEST_F(AccountRestoreEndToEndTest, WithoutTheAppOrTheServicesToFindItNothingIsRequested) {
    AccountDataManager manager;
    EXPECT_FALSE(manager.MoveFileToCvid());
    EXPECT_EQ(HandOverLines(),
              (std::vector<LogLine>{{6, "MoveFileToCvid failed, tempJsonFilePath is empty."}}));
    const std::vector<std::pair<std::function<void()>, std::vector<LogLine>>> cases = {
        {[] { Host::SetInstalledBundles({}); },
         {{6,
           "CreateFileParam failed to get bundle info for com.corvan.zmx.corvanid due to errCode 8521221"}}},
        {[] { Host::InjectFault("GetSystemAbilityManager", 0, 1); },
         {{6, "GetBundleMgr GetSystemAbilityManager is null"},
          {6, "CreateFileParam can not get bundleMgr."}}},
        {[] { Host::InjectFault("GetSystemAbility", 0, 1); },
         {{6, "GetBundleMgr GetSystemAbility is null"}, {6, "CreateFileParam can not get bundleMgr."}}},
    };
    for (const auto &[arrange, lines] : cases) {
        Host::ResetToTypicalDevice();
        arrange();
        EXPECT_FALSE(Restore());
        EXPECT_EQ(HandOverLines(), lines);
        // The export file stays for the final clean-up of the work directory.
        EXPECT_TRUE(std::filesystem::exists(tempFile_));
    }
    EXPECT_TRUE(service_.Journal().Entries().empty());
}

}  // namespace
