#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "service_fixture.h"

using namespace Zarvo::Testing;
using Zarvo::Host::FaultAction;
using Zarvo::Host::FaultRule;
using Zarvo::Host::JournalOutcome;
using Zarvo::Host::MigrateOp;

namespace {

class FaultsTest : public ServiceFixture {
protected:
    // Injects the rules of a fault description, as a file would give them.
    void Inject(const std::string &faults) {
        std::vector<FaultRule> rules;
        std::string error;
        ASSERT_TRUE(Zarvo::Host::ParseFaultDescription(R"({"faults": )" + faults + "}", rules, error))
            << error;
        service_->Faults().Replace(rules);
    }
};

TEST_F(FaultsTest, FailRulesAnswerTheNextRequestsOfTheirOperationOnly) {
    WriteFile(WORK_ROOT + "/f", "x");
    // By name and by number; the IS_DIR rule takes the default errCode and never runs out.
    Inject(R"([{"operation": "COPY_ALL_FILE", "action": "fail", "errCode": 28, "count": 2, "other": 1},
               {"operation": 1, "action": "fail", "result": 7, "count": -1}])");
    auto copy = Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/f", WORK_ROOT + "/g");
    EXPECT_EQ(Exchange(Request(MigrateOp::IS_FILE_EXIST, WORK_ROOT + "/f")).result, 0);
    for (int i = 0; i < 2; ++i) {
        RawReply reply = Exchange(copy);
        EXPECT_EQ(reply.result, -1);
        EXPECT_EQ(reply.errCode, 28);
        EXPECT_EQ(LastJournalEntry().outcome, JournalOutcome::FAULT);
        EXPECT_FALSE(Exists(WORK_ROOT + "/g"));
    }
    EXPECT_EQ(Exchange(copy).result, 0);
    EXPECT_TRUE(Exists(WORK_ROOT + "/g"));
    for (int i = 0; i < 3; ++i) {
        RawReply reply = Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT));
        EXPECT_EQ(reply.result, 7);
        EXPECT_EQ(reply.errCode, 5);
    }
    EXPECT_EQ(service_->Faults().Pending().size(), 1u);
}

TEST_F(FaultsTest, DropRuleClosesAfterReadingWithoutDoingTheOperation) {
    Inject(R"([{"action": "drop"}])");
    RawConnection connection;
    auto mkdir = Request(MigrateOp::MK_DIR, WORK_ROOT + "/dropped");
    ASSERT_TRUE(connection.SendBytes(RequestBytes(mkdir)));
    EXPECT_TRUE(connection.PeerClosed());
    EXPECT_FALSE(Exists(WORK_ROOT + "/dropped"));
    EXPECT_EQ(LastJournalEntry().outcome, JournalOutcome::DROPPED);
    EXPECT_EQ(Exchange(mkdir).result, 0) << "the rule was used up";
}

TEST_F(FaultsTest, StalledRequestDoesNotHoldUpOtherConnections) {
    FaultRule stall;  // through the API itself
    stall.action = FaultAction::STALL;
    stall.stallMs = 60000;
    service_->Faults().Add(stall);
    RawConnection stalled;
    ASSERT_TRUE(stalled.SendBytes(RequestBytes(Request(MigrateOp::IS_DIR, WORK_ROOT))));
    // Wait until the stalled request has taken the rule, so the next request is not stalled.
    for (int i = 0; i < 2000 && !service_->Faults().Pending().empty(); ++i) {
        usleep(1000);
    }
    ASSERT_TRUE(service_->Faults().Pending().empty());
    EXPECT_EQ(Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT)).result, 0);
    service_->Stop();
    EXPECT_TRUE(stalled.PeerClosed()) << "stopping ends a stall";
}

TEST(FaultDescriptionTest, MistakesAreReportedWithTheRuleNumber) {
    for (const char *faults :
         {R"([{"action": "explode"}])", R"([{"action": "fail", "operation": "COPY"}])",
          R"([{"action": "fail", "count": "two"}])", R"([{"action": "stall", "stallMs": -1}])",
          R"([{"action": "fail", "count": 18446744073709551615}])",
          R"([{"action": "fail", "operation": 4294967299}])"}) {
        std::vector<FaultRule> rules;
        std::string error;
        EXPECT_FALSE(
            Zarvo::Host::ParseFaultDescription(std::string(R"({"faults": )") + faults + "}", rules, error))
            << faults;
        EXPECT_EQ(error.rfind("fault 0: ", 0), 0u) << error;
    }
    std::vector<FaultRule> rules;
    std::string error;
    EXPECT_FALSE(Zarvo::Host::ParseFaultDescription("{not json", rules, error));
    EXPECT_FALSE(Zarvo::Host::ParseFaultDescription(R"({"faults": {}})", rules, error));
}

TEST(FaultDescriptionTest, DeviceStateFileWithoutTheServiceKeyHasNoFaults) {
    std::ofstream("/data/device_state.json") << R"({"accounts": []})";
    std::vector<FaultRule> rules;
    std::string error;
    EXPECT_TRUE(Zarvo::Host::LoadDeviceStateFaults("/data/device_state.json", rules, error)) << error;
    EXPECT_TRUE(rules.empty());
    EXPECT_FALSE(Zarvo::Host::LoadDeviceStateFaults("/data/none.json", rules, error));
    EXPECT_NE(error.find("/data/none.json"), std::string::npos);
}

}  // namespace
