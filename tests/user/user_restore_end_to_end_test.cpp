#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "captured_log.h"
#include "migrate_service/migrate_service.h"
#include "platform_control/credential_control.h"
#include "platform_control/device_state.h"
#include "user_data_manager.h"
#include "user_restore_support.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;
using namespace Zarvo::Fixtures;
using namespace std::chrono_literals;
using Zarvo::AccountSA::OsAccountType;
using Zarvo::Host::FaultAction;
using Zarvo::Host::FaultRule;
using Zarvo::Host::JournalOutcome;
using Zarvo::Host::MigrateOp;

namespace {

// The whole user restore against the real migrate service (in a thread of this process), the
// real binary XML converter, the host account store and the credential service.
class UserRestoreEndToEndTest : public testing::Test {
protected:
    void SetUp() override {
        ResetUserRestoreWorld();
        std::string error;
        ASSERT_TRUE(service_.Start(error)) << error;
    }
    void TearDown() override { service_.Stop(); }

    std::vector<Zarvo::Host::JournalEntry> PrepareDirRequests() {
        std::vector<Zarvo::Host::JournalEntry> entries;
        for (const auto &entry : service_.Journal().Entries()) {
            if (entry.request.type == static_cast<int32_t>(MigrateOp::PREPARE_DIR)) {
                entries.push_back(entry);
            }
        }
        return entries;
    }

    Zarvo::Host::MigrateService service_;
};

TEST_F(UserRestoreEndToEndTest, SamplePhoneIsRestoredThroughRealServices) {
    AndroidUsers phone = SamplePhoneUsers();
    LaySourceUsers(phone);
    UserDataManager manager;
    EXPECT_TRUE(manager.DoRestoreData());
    ASSERT_TRUE(Zarvo::Host::WaitForCredentialAnswers(1, 5s));

    auto prepared = PrepareDirRequests();
    ASSERT_EQ(prepared.size(), 1u) << "the conversion directory is made once, for the user list";
    EXPECT_EQ(prepared[0].outcome, JournalOutcome::SERVED);
    EXPECT_EQ(prepared[0].result, 0);
    EXPECT_EQ(prepared[0].request.src, CONVERT_XML_DIR);
    EXPECT_EQ(prepared[0].request.dst, CONVERT_XML_DIR);
    EXPECT_EQ(prepared[0].request.uid, "migrate_server");
    EXPECT_EQ(prepared[0].request.gid, "migrate_server");
    EXPECT_EQ(prepared[0].request.perm, "0700");
    EXPECT_EQ(prepared[0].request.recurseOpt, 2);
    struct stat info {};
    ASSERT_EQ(stat(CONVERT_XML_DIR.c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0700u);
    for (const std::string name : {"userlist.xml", "0.xml", "10.xml", "11.xml", "12.xml"}) {
        EXPECT_TRUE(std::filesystem::is_regular_file(CONVERT_XML_DIR + name)) << name;
    }

    auto accounts = Zarvo::Host::OsAccounts();
    ASSERT_EQ(accounts.size(), 2u);
    EXPECT_EQ(accounts[0].GetLocalId(), 100);
    EXPECT_EQ(accounts[0].GetType(), OsAccountType::ADMIN);
    EXPECT_TRUE(accounts[0].GetIsActived());
    EXPECT_EQ(accounts[1].GetLocalId(), 101);
    EXPECT_EQ(accounts[1].GetLocalName(), *phone.users[1].name);
    EXPECT_EQ(accounts[1].GetPhoto().rfind("data:image/png;base64,iVBORw0KGgo", 0), 0u);
    EXPECT_TRUE(CapturedFaultEvents().empty());
    EXPECT_EQ(Zarvo::Host::CredentialClearRequestCount(), 1u);
    EXPECT_EQ(CountPluginLines("OnResult result is 0."), 1u);
}

TEST_F(UserRestoreEndToEndTest, ServiceRefusingTheDirectoryThriceStillSucceeds) {
    FaultRule rule;
    rule.type = static_cast<int32_t>(MigrateOp::PREPARE_DIR);
    rule.action = FaultAction::FAIL;
    rule.result = -1;
    rule.count = 3;
    service_.Faults().Add(rule);
    LaySourceUsers(SamplePhoneUsers());
    UserDataManager manager;
    EXPECT_TRUE(manager.DoRestoreData());
    ASSERT_TRUE(Zarvo::Host::WaitForCredentialAnswers(1, 5s));
    EXPECT_EQ(PrepareDirRequests().size(), 4u);
    EXPECT_EQ(
        CountPluginLines("CreateConvertXmlPath failed, MkDir result -1, will retry after 10 milliseconds"),
        3u);
    EXPECT_EQ(Zarvo::Host::OsAccounts().size(), 2u);
}

TEST_F(UserRestoreEndToEndTest, DirectoryThatCannotBeMadeFailsTheRestoreWithoutEvents) {
    FaultRule rule;
    rule.type = static_cast<int32_t>(MigrateOp::PREPARE_DIR);
    rule.action = FaultAction::FAIL;
    rule.result = -1;
    rule.count = -1;
    service_.Faults().Add(rule);
    LaySourceUsers(SamplePhoneUsers());
    UserDataManager manager;
    EXPECT_FALSE(manager.DoRestoreData());
    ASSERT_TRUE(Zarvo::Host::WaitForCredentialAnswers(1, 5s));
    EXPECT_EQ(PrepareDirRequests().size(), 4u);
    EXPECT_EQ(
        CountPluginLines("CreateConvertXmlPath failed, after retry 3 times, pathName : " + CONVERT_XML_DIR),
        1u);
    EXPECT_TRUE(CapturedFaultEvents().empty());
    EXPECT_EQ(Zarvo::Host::OsAccounts().size(), 1u);
    EXPECT_EQ(Zarvo::Host::CredentialClearRequestCount(), 1u);
}

TEST_F(UserRestoreEndToEndTest, CorruptUserFileIsReportedAndTheRestGoesOn) {
    AndroidUsers phone = SamplePhoneUsers();
    LaySourceUsers(phone);
    std::string owner = EncodeUserFile(phone.users[0], UserFileForm::BINARY);
    WriteSourceFile("0.xml", owner.substr(0, owner.size() - 7));  // cut inside the last tokens
    UserDataManager manager;
    EXPECT_FALSE(manager.DoRestoreData());
    ASSERT_TRUE(Zarvo::Host::WaitForCredentialAnswers(1, 5s));
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<FaultEvent>{RestoreFail(0x200003, "SOURCE_FILE_ERROR", "0.xmlconvert error")}));
    EXPECT_EQ(Zarvo::Host::OsAccounts().size(), 2u);
    EXPECT_EQ(Zarvo::Host::CallCount("UpdateOsAccountWithFullInfo"), 0);
}

}  // namespace
