#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "captured_log.h"
#include "migrate_service/migrate_service.h"
#include "platform_control/credential_control.h"
#include "platform_control/device_state.h"
#include "platform_control/event_capture.h"
#include "sample_phone.h"
#include "snapshot.h"

namespace {

using namespace Zarvo;
namespace fs = std::filesystem;

const std::string WORK_ROOT = "/data/service/el1/public/update/migrate_server/plugins/200/";
const std::string SNAPSHOT = "/data/snapshot";
const std::string OUTSIDE_SIBLING = "/data/service/el1/public/update/migrate_server/plugins/201/keep.txt";
const std::string OUTSIDE_DATA = "/data/keep.txt";

std::string HandedFile(int userId) {
    return "/data/app/el2/" + std::to_string(userId) +
           "/base/com.corvan.zmx.corvanid/haps/zmxcore_account_backup/files/ath/ce/account_manager_db.json";
}

AccountSA::OsAccountInfo Account(int id, AccountSA::OsAccountType type, bool active) {
    AccountSA::OsAccountInfo info(id, "user" + std::to_string(id), type, id);
    info.SetIsActived(active);
    return info;
}

std::vector<int> LocalIds() {
    std::vector<int> ids;
    for (const auto &account : Host::OsAccounts()) {
        ids.push_back(account.GetLocalId());
    }
    return ids;
}

// RestoreData of the shipped plug-in, against the migrate service running in this process.
class RestorePluginTest : public testing::Test {
protected:
    void SetUp() override {
        Host::ResetToTypicalDevice();
        Host::ResetCredentialService();
        Testing::ResetCaptures();
        std::string error;
        ASSERT_TRUE(service_.Start(error)) << error;
        handle_ = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle_, nullptr) << dlerror();
        restoreData_ = reinterpret_cast<bool (*)()>(dlsym(handle_, "RestoreData"));
        ASSERT_NE(restoreData_, nullptr);
        for (const std::string &path : {OUTSIDE_SIBLING, OUTSIDE_DATA}) {
            fs::create_directories(fs::path(path).parent_path());
            std::ofstream(path) << "not the plug-in's";
        }
    }

    void TearDown() override {
        Host::ResetCredentialService();
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
        service_.Stop();
    }

    void LayPhone(const Fixtures::SamplePhone &phone, int activeUser) {
        ASSERT_EQ(Fixtures::BuildSamplePhone(phone, SNAPSHOT), "");
        std::string error;
        std::unique_ptr<Host::SnapshotSource> source = Host::OpenFolderSnapshot(SNAPSHOT, error);
        ASSERT_NE(source, nullptr) << error;
        Host::LaidSnapshot laid;
        ASSERT_EQ(Host::LaySnapshot(*source, activeUser, laid), "");
    }

    bool Restore() {
        bool result = restoreData_();
        EXPECT_TRUE(Host::WaitForCredentialAnswers(1, std::chrono::seconds(10)));
        return result;
    }

    void ExpectWorkTreeGoneAndOutsideUntouched() {
        EXPECT_FALSE(fs::exists(WORK_ROOT));
        EXPECT_TRUE(fs::exists(SNAPSHOT + "/system_ce/0/accounts_ce.db"));
        for (const std::string &path : {OUTSIDE_SIBLING, OUTSIDE_DATA}) {
            std::ifstream in(path);
            std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            EXPECT_EQ(content, "not the plug-in's") << path;
        }
    }

    Host::MigrateService service_;
    void *handle_ = nullptr;
    bool (*restoreData_)() = nullptr;
};

TEST_F(RestorePluginTest, TheSamplePhoneIsRestoredForTheAdministrator) {
    LayPhone(Fixtures::DefaultSamplePhone(), 100);
    EXPECT_TRUE(Restore());

    struct stat handed {};
    ASSERT_EQ(stat(HandedFile(100).c_str(), &handed), 0);
    EXPECT_EQ(handed.st_uid, static_cast<uid_t>(100 * Host::BUNDLE_UID_RANGE + Host::ACCOUNT_APP_ID));
    EXPECT_EQ(handed.st_mode & 07777, 0700u);
    EXPECT_EQ(LocalIds(), (std::vector<int>{100, 101}));
    EXPECT_TRUE(Host::CapturedEvents().empty());
    EXPECT_EQ(Host::CredentialClearRequestCount(), 1u);
    ExpectWorkTreeGoneAndOutsideUntouched();
}

TEST_F(RestorePluginTest, AnotherCurrentUserGetsOnlyTheAccountRestore) {
    Host::SetOsAccounts({Account(100, AccountSA::ADMIN, false), Account(101, AccountSA::NORMAL, true)});
    Host::SetInstalledBundles({{Host::ACCOUNT_APP_BUNDLE_NAME, Host::ACCOUNT_APP_ID, {100, 101}}});
    LayPhone(Fixtures::DefaultSamplePhone(), 101);

    EXPECT_TRUE(restoreData_());
    EXPECT_TRUE(fs::exists(HandedFile(101)));
    EXPECT_FALSE(fs::exists(HandedFile(100)));
    EXPECT_EQ(Testing::CountPluginLines("DoRestoreData called."), 0u);
    EXPECT_EQ(LocalIds(), (std::vector<int>{100, 101}));
    EXPECT_EQ(Host::CredentialClearRequestCount(), 0u);
    ExpectWorkTreeGoneAndOutsideUntouched();
}

TEST_F(RestorePluginTest, WithoutAnActiveAccountNothingIsRestoredAndTheTreeStillGoes) {
    Host::SetOsAccounts({Account(100, AccountSA::ADMIN, false)});
    LayPhone(Fixtures::DefaultSamplePhone(), -1);
    fs::create_directories(WORK_ROOT + "back/100");

    EXPECT_FALSE(restoreData_());
    std::vector<std::string> texts = Testing::PluginLogTexts();
    EXPECT_NE(std::find(texts.begin(), texts.end(), "DoRestoreData failed, check source data return false."),
              texts.end());
    EXPECT_NE(std::find(texts.begin(), texts.end(), "AccountDataManager DoRestoreData failed."), texts.end());
    EXPECT_EQ(Testing::CountPluginLines("DoRestoreData called."), 0u);
    EXPECT_EQ(Host::CredentialClearRequestCount(), 0u);
    ExpectWorkTreeGoneAndOutsideUntouched();
}

TEST_F(RestorePluginTest, APhoneWithoutTheServicesAccountStillRestoresItsUsers) {
    Fixtures::SamplePhone phone = Fixtures::DefaultSamplePhone();
    auto &accounts = phone.accounts.accounts;
    accounts.erase(std::remove_if(accounts.begin(), accounts.end(),
                                  [](const auto &a) { return a.type == Fixtures::CVID_ACCOUNT_TYPE; }),
                   accounts.end());
    LayPhone(phone, 100);

    EXPECT_TRUE(Restore());
    EXPECT_EQ(Testing::CountPluginLines("DoRestoreData success, database has no cvid data."), 1u);
    EXPECT_FALSE(fs::exists(HandedFile(100)));
    EXPECT_EQ(LocalIds(), (std::vector<int>{100, 101}));
    ExpectWorkTreeGoneAndOutsideUntouched();
}

TEST_F(RestorePluginTest, AFailedAccountRestoreDoesNotStopTheUserRestore) {
    Host::SetInstalledBundles({});
    LayPhone(Fixtures::DefaultSamplePhone(), 100);

    EXPECT_FALSE(Restore());
    EXPECT_EQ(
        Testing::CountPluginLines("CreateFileParam failed to get bundle info for com.corvan.zmx.corvanid"),
        1u);
    EXPECT_EQ(Testing::CountPluginLines("AccountDataManager DoRestoreData failed."), 1u);
    EXPECT_EQ(LocalIds(), (std::vector<int>{100, 101}));
    EXPECT_EQ(Host::CredentialClearRequestCount(), 1u);
    ExpectWorkTreeGoneAndOutsideUntouched();
}

TEST_F(RestorePluginTest, RunningOutOfMemoryReturnsFalseAndStillRemovesTheWorkTree) {
    // By the time users are created the export file with the auth token lies in the work tree.
    ASSERT_TRUE(Host::InjectOutOfMemory("CreateOsAccountWithFullInfo"));
    LayPhone(Fixtures::DefaultSamplePhone(), 100);

    EXPECT_FALSE(restoreData_());
    EXPECT_EQ(Testing::CountPluginLines("RestoreData failed, std::bad_alloc"), 1u);
    EXPECT_TRUE(fs::exists(HandedFile(100)));
    ExpectWorkTreeGoneAndOutsideUntouched();
}

TEST_F(RestorePluginTest, ASecondCallFindsNothingLeftToRestore) {
    LayPhone(Fixtures::DefaultSamplePhone(), 100);
    ASSERT_TRUE(Restore());
    Testing::ResetCaptures();

    EXPECT_FALSE(restoreData_());
    EXPECT_TRUE(Host::WaitForCredentialAnswers(2, std::chrono::seconds(10)));
    EXPECT_EQ(Testing::CountPluginLines("CheckDbFileExist file is not exist errno is 2"), 1u);
    EXPECT_EQ(LocalIds(), (std::vector<int>{100, 101}));
    ExpectWorkTreeGoneAndOutsideUntouched();
}

}  // namespace
