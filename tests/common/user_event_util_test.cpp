#include "user_event_util.h"

#include <gtest/gtest.h>

#include "captured_log.h"
#include "platform_control/event_capture.h"

using namespace Zarvo::UpdateEngine;
using Zarvo::Host::CapturedEvents;
using Type = Zarvo::HiviewDFX::HiSysEventParam::Type;

namespace {

class UserEventUtilTest : public testing::Test {
protected:
    void SetUp() override { Zarvo::Testing::ResetCaptures(); }
};

TEST_F(UserEventUtilTest, SendsOneFaultEventWithTheFourParametersInOrder) {
    UserEventUtil::SendUserRestoreErrorEvent(0x200004, "SOURCE_FILE_ERROR", "10.xmlconvert error");
    auto events = CapturedEvents();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].domain, "MIGRATESERVER");
    EXPECT_EQ(events[0].name, "RESTORE_SO_FAIL");
    EXPECT_EQ(events[0].type, 1);
    const auto &p = events[0].params;
    ASSERT_EQ(p.size(), 4u);
    EXPECT_EQ(p[0].name, "TASK_ID");
    EXPECT_EQ(p[0].stringValue, "200");
    EXPECT_EQ(p[1].name, "ERROR_TYPE");
    EXPECT_EQ(p[1].stringValue, "SOURCE_FILE_ERROR");
    EXPECT_EQ(p[2].name, "ERROR_CODE");
    EXPECT_EQ(p[2].type, Type::INT32);
    EXPECT_EQ(p[2].intValue, 2097156);
    EXPECT_EQ(p[3].name, "ERROR_MESSAGE");
    EXPECT_EQ(p[3].stringValue, "10.xmlconvert error");
    EXPECT_TRUE(Zarvo::Testing::PluginLogLines().empty());
}

TEST_F(UserEventUtilTest, EveryEventCarriesTaskId200WhateverItsCaller) {
    UserEventUtil::SendEvent(EventInfo{"", "CREATE_USER_ERROR", 0, "x"});
    UserEventUtil::SendUserRestoreErrorEvent(-1, "", "");
    auto events = CapturedEvents();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].params[0].stringValue, "");  // SendEvent writes what it is given
    EXPECT_EQ(events[1].params[0].stringValue, "200");
}

TEST_F(UserEventUtilTest, AFailedWriteLogsOneErrorLineAndIsNotRetried) {
    Zarvo::Host::FailEventWrites(-3, 1);
    UserEventUtil::SendUserRestoreErrorEvent(1, "PARSE_FILE_ERROR", "m");
    EXPECT_TRUE(CapturedEvents().empty());
    EXPECT_EQ(
        Zarvo::Testing::PluginLogLines(),
        (std::vector<Zarvo::Testing::LogLine>{{LOG_ERROR, "SendEvent hisysevent write failed! ret -3."}}));
}

}  // namespace
