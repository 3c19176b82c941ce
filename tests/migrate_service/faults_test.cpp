#include <gtest/gtest.h>
#include <poll.h>

#include <cerrno>
#include <fstream>

#include "service_fixture.h"

using namespace Zarvo::Testing;
using Zarvo::Host::FaultAction;
using Zarvo::Host::FaultRule;
using Zarvo::Host::JournalOutcome;
using Zarvo::Host::MigrateOp;

namespace {

class FaultsTest : public ServiceFixture {};

TEST_F(FaultsTest, FailRuleAnswersTheNextRequestsOfItsOperationOnly) {
    WriteFile(WORK_ROOT + "/f", "x");
    FaultRule rule;
    rule.type = static_cast<int32_t>(MigrateOp::COPY_ALL_FILE);
    rule.result = -1;
    rule.errCode = 28;
    rule.count = 2;
    service_->Faults().Add(rule);

    RawRequest copy = Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/f", WORK_ROOT + "/g");
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
    EXPECT_TRUE(service_->Faults().Pending().empty());
}

TEST_F(FaultsTest, DropRuleClosesAfterReadingWithoutDoingTheOperation) {
    FaultRule rule;
    rule.action = FaultAction::DROP;
    service_->Faults().Add(rule);
    RawConnection connection;
    RawRequest mkdir = Request(MigrateOp::MK_DIR, WORK_ROOT + "/dropped");
    ASSERT_TRUE(connection.SendBytes(mkdir.Bytes()));
    EXPECT_TRUE(connection.PeerClosed());
    EXPECT_FALSE(Exists(WORK_ROOT + "/dropped"));
    EXPECT_EQ(LastJournalEntry().outcome, JournalOutcome::DROPPED);
    EXPECT_EQ(Exchange(mkdir).result, 0) << "the rule was used up";
}

TEST_F(FaultsTest, NegativeCountNeverRunsOut) {
    FaultRule rule;
    rule.count = -1;
    rule.result = 7;
    service_->Faults().Add(rule);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT)).result, 7);
    }
    EXPECT_EQ(service_->Faults().Pending().size(), 1u);
}

TEST_F(FaultsTest, StalledRequestDoesNotHoldUpOtherConnections) {
    FaultRule rule;
    rule.action = FaultAction::STALL;
    rule.stallMs = 60000;
    service_->Faults().Add(rule);
    RawConnection stalled;
    ASSERT_TRUE(stalled.SendBytes(Request(MigrateOp::IS_DIR, WORK_ROOT).Bytes()));
    // Wait until the stalled request has taken the rule, so the next request is not stalled.
    for (int i = 0; i < 2000 && !service_->Faults().Pending().empty(); ++i) {
        usleep(1000);
    }
    ASSERT_TRUE(service_->Faults().Pending().empty());

    EXPECT_EQ(Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT)).result, 0);
    {
        // A client that stops halfway through its request holds up nobody either.
        RawConnection half;
        ASSERT_TRUE(half.SendBytes(std::string(100, '\0')));
        EXPECT_EQ(Exchange(Request(MigrateOp::IS_FILE_EXIST, WORK_ROOT)).result, 0);
    }
    bool incomplete = false;
    for (int i = 0; i < 2000 && !incomplete; ++i) {
        auto entries = service_->Journal().Entries();
        incomplete = !entries.empty() && entries.back().outcome == JournalOutcome::INCOMPLETE;
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
    EXPECT_EQ(rules[0].type, 13);
    EXPECT_EQ(rules[0].result, 5);
    EXPECT_EQ(rules[0].errCode, 1);
    EXPECT_EQ(rules[0].count, 3);
    EXPECT_EQ(rules[1].type, 7);
    EXPECT_EQ(rules[1].action, FaultAction::DROP);
    EXPECT_EQ(rules[1].count, 1);
    EXPECT_FALSE(rules[2].type.has_value());
    EXPECT_EQ(rules[2].action, FaultAction::STALL);
    EXPECT_EQ(rules[2].stallMs, 20);
}

TEST(FaultDescriptionTest, MistakesAreReportedWithTheRuleNumber) {
    for (const std::string &text : {std::string(R"({"faults": [{"action": "explode"}]})"),
                                    std::string(R"({"faults": [{"action": "fail", "operation": "COPY"}]})"),
                                    std::string(R"({"faults": [{"action": "fail", "count": "two"}]})"),
                                    std::string(R"({"faults": [{"action": "stall", "stallMs": -1}]})")}) {
        std::vector<FaultRule> rules;
        std::string error;
        EXPECT_FALSE(Zarvo::Host::ParseFaultDescription(text, rules, error)) << text;
        EXPECT_EQ(error.rfind("fault 0: ", 0), 0u) << error;
    }
    std::vector<FaultRule> rules;
    std::string error;
    EXPECT_FALSE(Zarvo::Host::ParseFaultDescription("{not json", rules, error));
    EXPECT_FALSE(Zarvo::Host::ParseFaultDescription(R"({"faults": {}})", rules, error));
}

TEST(FaultDescriptionTest, DeviceStateFileCarriesFaultsUnderItsOwnKeyOnly) {
    const std::string path = "/data/device_state.json";
    std::ofstream(path) << R"({"accounts": [{"id": 100}],
                               "migrateService": {"faults": [{"operation": "MK_DIR", "action": "fail"}]}})";
    std::vector<FaultRule> rules;
    std::string error;
    ASSERT_TRUE(Zarvo::Host::LoadDeviceStateFaults(path, rules, error)) << error;
    ASSERT_EQ(rules.size(), 1u);
    EXPECT_EQ(rules[0].type, 12);
    EXPECT_EQ(rules[0].errCode, 5);

    std::ofstream(path, std::ios::trunc) << R"({"accounts": []})";
    rules.clear();
    EXPECT_TRUE(Zarvo::Host::LoadDeviceStateFaults(path, rules, error));
    EXPECT_TRUE(rules.empty());
    EXPECT_FALSE(Zarvo::Host::LoadDeviceStateFaults("/data/none.json", rules, error));
    EXPECT_NE(error.find("/data/none.json"), std::string::npos);
}

}  // namespace
