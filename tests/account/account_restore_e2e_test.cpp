#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "account_data_manager.h"
#include "account_fixture.h"
#include "captured_log.h"
#include "migrate_service/migrate_service.h"
#include "platform_control/device_state.h"

namespace {

using namespace Zarvo;
using namespace Zarvo::UpdateEngine;

const std::string TARGET_DIR =
    "/data/app/el2/100/base/com.corvan.zmx.corvanid/haps/zmxcore_account_backup/files/ath/ce/";
const std::string TARGET_FILE = TARGET_DIR + "account_manager_db.json";
constexpr uid_t APP_UID = 100 * 200000 + Host::ACCOUNT_APP_ID;

// The account restore of user 100 against the real migrate service running in this process.
class AccountRestoreEndToEndTest : public testing::Test {
protected:
    void SetUp() override {
        Host::ResetToTypicalDevice();
        Testing::ResetCaptures();
        dbPath_ = Testing::WriteUserAccountsDb(100, Fixtures::SamplePhoneAccounts());
        tablesBefore_ = Testing::DumpTables(dbPath_);
        dbBytesBefore_ = Testing::ReadFileBytes(dbPath_);
        service_ = std::make_unique<Host::MigrateService>();
        std::string error;
        ASSERT_TRUE(service_->Start(error)) << error;
    }

    void TearDown() override { service_->Stop(); }

    void ExpectSourceUnchanged() {
        EXPECT_EQ(Testing::DumpTables(dbPath_), tablesBefore_);
        EXPECT_EQ(Testing::ReadFileBytes(dbPath_), dbBytesBefore_);
        EXPECT_FALSE(std::filesystem::exists(dbPath_ + "-wal"));
    }

    std::vector<Testing::LogLine> HandOverLines() {
        std::vector<Testing::LogLine> lines;
        for (auto &line : Testing::PluginLogLines()) {
            if (line.text.rfind("MoveFileToCvid", 0) == 0) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    const std::string tempFile_ = Testing::UserBackDir(100) + ACCOUNT_JSON_NAME;
    std::string dbPath_;
    std::string tablesBefore_;
    std::string dbBytesBefore_;
    std::unique_ptr<Host::MigrateService> service_;
};

TEST_F(AccountRestoreEndToEndTest, TheAccountLandsInTheAppDirectoryOwnedByTheApp) {
    AccountDataManager manager;
    ASSERT_TRUE(manager.DoRestoreData());
    EXPECT_TRUE(manager.IsAdminUser());

    const std::string expected =
        "{\"authtoken\":"
        "\"CgB6e3x9QW8xY2M0ZTYtYjQ1Ny00ZmE2LWE0NDctNTg4ZDE2MmU2ZjE1EhAxNzAwMDAwMDAwMDAwMDAwGiQ2YjJkZTk1"
        "Ni1hNGJmLTQ0ZTQtOTk2Zi1lNjQ1YjhiOGQ5YmQiBnpoX0NO\",\"extras\":[{\"id\":9,\"key\":\"countryCode\","
        "\"value\":\"CN\"},{\"id\":8,\"key\":\"nickName\",\"value\":\"李伟\"},{\"id\":7,\"key\":\"userId\","
        "\"value\":\"2850086000123456789\"}],\"id\":3,\"locale\":\"zh_CN_#Hans\",\"name\":\"13800138000\","
        "\"type\":\"com.corvan.cvid\"}";
    EXPECT_EQ(Testing::ReadFileBytes(tempFile_), expected);
    EXPECT_EQ(Testing::ReadFileBytes(TARGET_FILE), expected);

    struct stat file {};
    ASSERT_EQ(stat(TARGET_FILE.c_str(), &file), 0);
    EXPECT_EQ(file.st_uid, APP_UID);
    EXPECT_EQ(file.st_gid, APP_UID);
    EXPECT_EQ(file.st_mode & 07777, 0700u);
    struct stat dir {};
    ASSERT_EQ(stat(TARGET_DIR.c_str(), &dir), 0);
    EXPECT_EQ(dir.st_uid, APP_UID);
    EXPECT_EQ(dir.st_mode & 07777, 0700u);

    EXPECT_EQ(HandOverLines(), (std::vector<Testing::LogLine>{{4, "MoveFileToCvid success, from : " +
                                                                      tempFile_ + ", to : " + TARGET_DIR}}));
    ExpectSourceUnchanged();
}

TEST_F(AccountRestoreEndToEndTest, AServiceThatFailsEveryRequestGetsFourAttempts) {
    service_->Faults().Add({std::nullopt, Host::FaultAction::FAIL, -1, 5, 0, -1});
    AccountDataManager manager;
    EXPECT_FALSE(manager.DoRestoreData());
    const Testing::LogLine retry{
        4,
        "MoveFileToCvid failed, MkDir result -1, MoveFile result -1, will retry after 10 "
        "milliseconds"};
    EXPECT_EQ(HandOverLines(),
              (std::vector<Testing::LogLine>{retry,
                                             retry,
                                             retry,
                                             {6, "MoveFileToCvid failed, after retry 3 times, from : " +
                                                     tempFile_ + ", to : " + TARGET_DIR}}));
    EXPECT_EQ(Testing::PluginLogTexts().back(), "DoRestoreData failed, Process the JSON file return false.");
    EXPECT_EQ(service_->Journal().Entries().size(), 8u);
    EXPECT_FALSE(std::filesystem::exists(TARGET_FILE));
    ExpectSourceUnchanged();
}

TEST_F(AccountRestoreEndToEndTest, AFailedDirectoryRequestFailsTheAttemptEvenWhenTheCopyWorks) {
    // Both requests go out in the failed attempt; the next one makes the directory and copies.
    service_->Faults().Add(
        {static_cast<int32_t>(Host::MigrateOp::PREPARE_DIR), Host::FaultAction::FAIL, 13, 13, 0, 1});
    AccountDataManager manager;
    EXPECT_TRUE(manager.DoRestoreData());
    auto lines = HandOverLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text.rfind("MoveFileToCvid failed, MkDir result 13, MoveFile result ", 0), 0u)
        << lines[0].text;
    EXPECT_EQ(Testing::CountPluginLines("Compose CopyAllFile src: " + tempFile_), 2u);
    EXPECT_EQ(lines[1].text, "MoveFileToCvid success, from : " + tempFile_ + ", to : " + TARGET_DIR);
    struct stat file {};
    ASSERT_EQ(stat(TARGET_FILE.c_str(), &file), 0);
    EXPECT_EQ(file.st_uid, APP_UID);
    EXPECT_EQ(file.st_mode & 07777, 0700u);
}

}  // namespace
