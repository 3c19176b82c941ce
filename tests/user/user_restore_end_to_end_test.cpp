#include <gtest/gtest.h>

#include "captured_log.h"
#include "migrate_service/migrate_service.h"
#include "platform_control/device_state.h"
#include "user_restore_support.h"

using namespace Zarvo::Testing;
using namespace Zarvo::Fixtures;
using namespace Zarvo::Host;

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

    std::vector<JournalEntry> PrepareDirRequests() {
        std::vector<JournalEntry> entries;
        for (const auto &entry : service_.Journal().Entries()) {
            if (entry.request.type == static_cast<int32_t>(MigrateOp::PREPARE_DIR)) {
                entries.push_back(entry);
            }
        }
        return entries;
    }

    MigrateService service_;
};

TEST_F(UserRestoreEndToEndTest, SamplePhoneIsRestoredThroughRealServices) {
    LaySourceUsers(SamplePhoneUsers());
    EXPECT_TRUE(RestoreUsers());

    auto prepared = PrepareDirRequests();
    ASSERT_EQ(prepared.size(), 1u) << "the conversion directory is made once, for the user list";
    EXPECT_EQ(prepared[0].outcome, JournalOutcome::SERVED);
    EXPECT_EQ(prepared[0].result, 0);
    const auto &request = prepared[0].request;
    EXPECT_EQ(request.src + " " + request.dst + " " + request.uid + " " + request.gid + " " + request.perm,
              CONVERT_XML_DIR + " " + CONVERT_XML_DIR + " migrate_server migrate_server 0700");
    EXPECT_EQ(request.recurseOpt, 2);
    EXPECT_EQ(OsAccountIds(), (std::vector<int>{100, 101}));
    EXPECT_TRUE(CapturedFaultEvents().empty());
}

// The service refuses to prepare the conversion directory a number of times (-1: always).
class DirectoryRefusedTest : public UserRestoreEndToEndTest, public testing::WithParamInterface<int> {};

TEST_P(DirectoryRefusedTest, RequestIsTriedFourTimesAndOnlyAMissingDirectoryFailsTheRestore) {
    const bool made = GetParam() > 0;
    FaultRule rule;
    rule.type = static_cast<int32_t>(MigrateOp::PREPARE_DIR);
    rule.action = FaultAction::FAIL;
    rule.result = -1;
    rule.count = GetParam();
    service_.Faults().Add(rule);
    LaySourceUsers(SamplePhoneUsers());
    EXPECT_EQ(RestoreUsers(), made);
    EXPECT_EQ(PrepareDirRequests().size(), 4u);
    EXPECT_EQ(
        CountPluginLines("CreateConvertXmlPath failed, MkDir result -1, will retry after 10 milliseconds"),
        3u);
    EXPECT_EQ(
        CountPluginLines("CreateConvertXmlPath failed, after retry 3 times, pathName : " + CONVERT_XML_DIR),
        made ? 0u : 1u);
    EXPECT_TRUE(CapturedFaultEvents().empty());
    EXPECT_EQ(OsAccountIds().size(), made ? 2u : 1u);
}

INSTANTIATE_TEST_SUITE_P(ThriceOrAlways, DirectoryRefusedTest, testing::Values(3, -1));

TEST_F(UserRestoreEndToEndTest, CorruptUserFileIsReportedAndTheRestGoesOn) {
    AndroidUsers phone = SamplePhoneUsers();
    LaySourceUsers(phone);
    std::string owner = EncodeUserFile(phone.users[0], UserFileForm::BINARY);
    WriteSourceFile("0.xml", owner.substr(0, owner.size() - 7));  // cut inside the last tokens
    EXPECT_FALSE(RestoreUsers());
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<std::string>{RestoreFail(0x200003, "SOURCE_FILE_ERROR", "0.xmlconvert error")}));
    EXPECT_EQ(OsAccountIds(), (std::vector<int>{100, 101}));
    EXPECT_EQ(CallCount("UpdateOsAccountWithFullInfo"), 0);
}

}  // namespace
