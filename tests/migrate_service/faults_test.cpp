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
    void AddRule(std::optional<MigrateOp> op, FaultAction action, int32_t count, int32_t result = -1) {
        FaultRule rule;
        if (op) {
            rule.type = static_cast<int32_t>(*op);
        }
        rule.action = action;
        rule.count = count;
        rule.result = result;
        rule.errCode = 28;
        rule.stallMs = 60000;
        service_->Faults().Add(rule);
    }
};

TEST_F(FaultsTest, FailRulesAnswerTheNextRequestsOfTheirOperationOnly) {
    WriteFile(WORK_ROOT + "/f", "x");
    AddRule(MigrateOp::COPY_ALL_FILE, FaultAction::FAIL, 2);
    AddRule(MigrateOp::IS_DIR, FaultAction::FAIL, -1, 7);  // a negative count never runs out
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
        EXPECT_EQ(Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT)).result, 7);
    }
    EXPECT_EQ(service_->Faults().Pending().size(), 1u);
}

TEST_F(FaultsTest, DropRuleClosesAfterReadingWithoutDoingTheOperation) {
    AddRule(std::nullopt, FaultAction::DROP, 1);
    RawConnection connection;
    auto mkdir = Request(MigrateOp::MK_DIR, WORK_ROOT + "/dropped");
    ASSERT_TRUE(connection.SendBytes(RequestBytes(mkdir)));
    EXPECT_TRUE(connection.PeerClosed());
    EXPECT_FALSE(Exists(WORK_ROOT + "/dropped"));
    EXPECT_EQ(LastJournalEntry().outcome, JournalOutcome::DROPPED);
    EXPECT_EQ(Exchange(mkdir).result, 0) << "the rule was used up";
}

TEST_F(FaultsTest, StalledOrHalfSentRequestsDoNotHoldUpOtherConnections) {
    AddRule(std::nullopt, FaultAction::STALL, 1);
    RawConnection stalled;
    ASSERT_TRUE(stalled.SendBytes(RequestBytes(Request(MigrateOp::IS_DIR, WORK_ROOT))));
    // Wait until the stalled request has taken the rule, so the next request is not stalled.
    for (int i = 0; i < 2000 && !service_->Faults().Pending().empty(); ++i) {
        usleep(1000);
    }
    ASSERT_TRUE(service_->Faults().Pending().empty());
    EXPECT_EQ(Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT)).result, 0);
    {
        RawConnection half;
        ASSERT_TRUE(half.SendBytes(std::string(100, '\0')));
        EXPECT_EQ(Exchange(Request(MigrateOp::IS_FILE_EXIST, WORK_ROOT)).result, 0);
    }
    bool incomplete = false;
    for (int i = 0; i < 2000 && !incomplete; ++i) {
        incomplete = LastJournalEntry().outcome == JournalOutcome::INCOMPLETE;
        usleep(1000);
    }
    EXPECT_TRUE(incomplete) << "the half request is journalled once its client goes";
    service_->Stop();
    EXPECT_TRUE(stalled.PeerClosed()) << "stopping ends a stall";
}

TEST(FaultDescriptionTest, RulesReadByNameNumberOrAnyWithDefaults) {
    std::vector<FaultRule> rules;
    std::string error;
    ASSERT_TRUE(Zarvo::Host::ParseFaultDescription(
        R"({"faults": [{"operation": "CHOWN", "action": "fail", "result": 5, "errCode": 1, "count": 3},
                       {"operation": 7, "action": "drop"},
                       {"action": "stall", "stallMs": 20, "other": true}], "unrelated": 1})",
        rules, error))
        << error;
    ASSERT_EQ(rules.size(), 3u);
    EXPECT_EQ(
        std::make_tuple(rules[0].type, rules[0].action, rules[0].result, rules[0].errCode, rules[0].count),
        std::make_tuple(std::optional<int32_t>(13), FaultAction::FAIL, 5, 1, 3));
    EXPECT_EQ(
        std::make_tuple(rules[1].type, rules[1].action, rules[1].result, rules[1].errCode, rules[1].count),
        std::make_tuple(std::optional<int32_t>(7), FaultAction::DROP, -1, 5, 1));
    EXPECT_FALSE(rules[2].type.has_value());
    EXPECT_EQ(rules[2].action, FaultAction::STALL);
    EXPECT_EQ(rules[2].stallMs, 20);
}

TEST(FaultDescriptionTest, MistakesAreReportedWithTheRuleNumber) {
    for (const char *faults :
         {R"([{"action": "explode"}])", R"([{"action": "fail", "operation": "COPY"}])",
          R"([{"action": "fail", "count": "two"}])", R"([{"action": "stall", "stallMs": -1}])"}) {
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
