#include "hisysevent.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "platform_control/device_state.h"
#include "platform_control/event_capture.h"

using namespace Zarvo::Host;
using Zarvo::HiviewDFX::HiSysEvent;
using Type = Zarvo::HiviewDFX::HiSysEventParam::Type;

namespace {

class HiSysEventTest : public testing::Test {
protected:
    void SetUp() override {
        ClearCapturedEvents();
        ResetEventFaults();
        std::string error;
        SetEventLogPath("", error);
    }
};

TEST_F(HiSysEventTest, KeepsTypedParametersInOrder) {
    int32_t code = -7;
    int64_t big = 1LL << 40;
    uint32_t small = 5;
    EXPECT_EQ(HiSysEventWrite("DOMAIN", "NAME", HiSysEvent::FAULT, "S", std::string("text"), "I32", code,
                              "I64", big, "U32", small, "B", true, "D", 0.5, "C", "literal"),
              0);
    auto events = CapturedEvents();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].domain, "DOMAIN");
    EXPECT_EQ(events[0].name, "NAME");
    EXPECT_EQ(events[0].type, 1);
    const auto &p = events[0].params;
    ASSERT_EQ(p.size(), 7u);
    EXPECT_EQ(p[0].name, "S");
    EXPECT_EQ(p[0].type, Type::STRING);
    EXPECT_EQ(p[0].stringValue, "text");
    EXPECT_EQ(p[1].type, Type::INT32);
    EXPECT_EQ(p[1].intValue, -7);
    EXPECT_EQ(p[2].type, Type::INT64);
    EXPECT_EQ(p[2].intValue, big);
    EXPECT_EQ(p[3].type, Type::UINT32);
    EXPECT_EQ(p[4].type, Type::BOOL);
    EXPECT_EQ(p[5].type, Type::DOUBLE);
    EXPECT_EQ(p[6].stringValue, "literal");
}

TEST_F(HiSysEventTest, RefusesEventsWithoutDomainOrName) {
    EXPECT_NE(HiSysEventWrite("", "NAME", HiSysEvent::FAULT), 0);
    EXPECT_NE(HiSysEventWrite("DOMAIN", "", HiSysEvent::FAULT), 0);
    EXPECT_NE(HiSysEventWrite("DOMAIN", "NAME", HiSysEvent::FAULT, "", 1), 0);
    EXPECT_TRUE(CapturedEvents().empty());
}

TEST_F(HiSysEventTest, InjectedFailuresLastForTheirCount) {
    FailEventWrites(-42, 2);
    EXPECT_EQ(HiSysEventWrite("D", "N", HiSysEvent::FAULT), -42);
    EXPECT_EQ(HiSysEventWrite("D", "N", HiSysEvent::FAULT), -42);
    EXPECT_EQ(HiSysEventWrite("D", "N", HiSysEvent::FAULT), 0);
    EXPECT_EQ(CapturedEvents().size(), 1u);

    // The device state arms the same fault.
    std::string error;
    ASSERT_TRUE(
        LoadDeviceStateFromText(R"({"faults": [{"operation": "HiSysEventWrite", "code": 9}]})", error))
        << error;
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(HiSysEventWrite("D", "N", HiSysEvent::FAULT), 9);
    }
    ResetEventFaults();
    EXPECT_EQ(HiSysEventWrite("D", "N", HiSysEvent::FAULT), 0);
    EXPECT_EQ(CallCount("HiSysEventWrite"), 6);
    ResetToTypicalDevice();
}

TEST_F(HiSysEventTest, AnEventLogThatCannotBeWrittenIsAnError) {
    std::string error;
    mkdir("/data/dir", 0755);
    for (const char *path : {"/data/missing/e.jsonl", "/data/dir"}) {
        EXPECT_FALSE(SetEventLogPath(path, error)) << path;
        EXPECT_NE(error.find(path), std::string::npos) << error;
    }
    ASSERT_TRUE(SetEventLogPath("/dev/full", error)) << error;
    EXPECT_EQ(HiSysEventWrite("D", "N", HiSysEvent::FAULT), -2);
    EXPECT_TRUE(CapturedEvents().empty());
    EXPECT_EQ(EventLogError(), "the event log /dev/full could not be written: No space left on device.");
}

TEST_F(HiSysEventTest, AppendsJsonLinesToTheEventLog) {
    const std::string path = "/data/events.jsonl";
    std::string error;
    ASSERT_TRUE(SetEventLogPath(path, error)) << error;
    HiSysEventWrite("MIGRATESERVER", "RESTORE_SO_FAIL", HiSysEvent::FAULT, "TASK_ID", "200", "ERROR_CODE", 5);
    HiSysEventWrite("MIGRATESERVER", "RESTORE_SO_FAIL", HiSysEvent::FAULT, "ERROR_MESSAGE",
                    std::string("bad\xff"));

    std::ifstream file(path);
    std::string first;
    std::string second;
    ASSERT_TRUE(std::getline(file, first));
    ASSERT_TRUE(std::getline(file, second));
    auto event = nlohmann::json::parse(first);
    EXPECT_EQ(event["domain"], "MIGRATESERVER");
    EXPECT_EQ(event["name"], "RESTORE_SO_FAIL");
    EXPECT_EQ(event["type"], 1);
    EXPECT_EQ(event["params"][0],
              (nlohmann::json{{"name", "TASK_ID"}, {"type", "STRING"}, {"value", "200"}}));
    EXPECT_EQ(event["params"][1], (nlohmann::json{{"name", "ERROR_CODE"}, {"type", "INT32"}, {"value", 5}}));
    EXPECT_EQ(nlohmann::json::parse(second)["params"][0]["value"], "bad\xEF\xBF\xBD");
}

}  // namespace
