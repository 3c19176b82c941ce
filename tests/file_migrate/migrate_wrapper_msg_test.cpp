#include "migrate_wrapper_msg.h"

#include <gtest/gtest.h>

#include <cstring>

#include "captured_log.h"

using namespace Zarvo::UpdateEngine;
using Zarvo::Testing::PluginLogLines;
using Zarvo::Testing::PluginLogTexts;

namespace {

class MigrateWrapperMsgTest : public testing::Test {
protected:
    void SetUp() override { Zarvo::Testing::ResetCaptures(); }

    static int32_t IntAt(const char *buf, size_t offset) {
        int32_t value = 0;
        std::memcpy(&value, buf + offset, sizeof(value));
        return value;
    }

    // The text at the field and nothing but zeros after it up to the field's end.
    static void ExpectField(const char *buf, size_t offset, size_t width, const std::string &text) {
        EXPECT_EQ(std::string(buf + offset, text.size()), text) << "field at " << offset;
        for (size_t i = text.size(); i < width; ++i) {
            ASSERT_EQ(buf[offset + i], '\0') << "field at " << offset << " byte " << i;
        }
    }
};

TEST_F(MigrateWrapperMsgTest, EveryFieldSitsAtItsOffsetZeroPadded) {
    FileParam param{};
    param.recurseOpt = RECURSE_ALL;
    param.uid = "20010037";
    param.gid = "migrate_server";
    param.perm = "0700";
    param.dstFile = "/data/app/el2/100/base/dst.json";
    param.reserved = "r";
    MigrateWrapperMsg msg;
    ASSERT_TRUE(msg.AssembleMsg(CHOWN, "/data/src", param));
    const char *buf = msg.GetMsgBuf();
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(msg.GetMsgLength(), 2388);
    EXPECT_EQ(IntAt(buf, 0), 13);
    ExpectField(buf, 4, 1024, "/data/src");
    ExpectField(buf, 1028, 1024, "/data/app/el2/100/base/dst.json");
    ExpectField(buf, 2052, 32, "20010037");
    ExpectField(buf, 2084, 32, "migrate_server");
    ExpectField(buf, 2116, 16, "0700");
    EXPECT_EQ(IntAt(buf, 2132), 2);
    ExpectField(buf, 2136, 252, "r");
    EXPECT_EQ(buf[2388], '\0');
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(MigrateWrapperMsgTest, EachTextFieldTakesItsWidthLessOneByte) {
    struct Field {
        std::string FileParam::*member;  // null for the source path
        size_t width;
        std::string failure;
    };
    const std::vector<Field> fields = {{nullptr, 1024, "failed to transform srcFilePath!"},
                                       {&FileParam::uid, 32, "failed to transform uid!"},
                                       {&FileParam::gid, 32, "failed to transform gid!"},
                                       {&FileParam::perm, 16, "failed to transform perm!"},
                                       {&FileParam::dstFile, 1024, "failed to transform dstFilePath!"},
                                       {&FileParam::reserved, 252, "failed to transform reserved!"}};
    for (const Field &field : fields) {
        for (size_t length : {field.width - 1, field.width}) {
            Zarvo::Testing::ResetCaptures();
            FileParam param{};
            std::string src = "/src";
            (field.member == nullptr ? src : param.*field.member) = std::string(length, 'x');
            MigrateWrapperMsg msg;
            bool fits = length < field.width;
            EXPECT_EQ(msg.AssembleMsg(IS_FILE_EXIST, src, param), fits) << field.failure << " " << length;
            std::vector<std::string> expected;
            if (!fits) {
                expected.push_back(field.failure);
            }
            EXPECT_EQ(PluginLogTexts(), expected);
        }
    }
}

TEST_F(MigrateWrapperMsgTest, OnlyTheFirstOverlongFieldInCopyOrderIsReported) {
    FileParam param{};
    param.dstFile = std::string(1024, 'd');
    param.perm = std::string(16, 'p');
    param.reserved = std::string(252, 'r');
    MigrateWrapperMsg msg;
    EXPECT_FALSE(msg.AssembleMsg(COPY_ALL_FILE, "/src", param));
    EXPECT_EQ(PluginLogTexts(), std::vector<std::string>{"failed to transform perm!"});

    Zarvo::Testing::ResetCaptures();
    param.perm = "0700";
    EXPECT_FALSE(msg.AssembleMsg(COPY_ALL_FILE, "/src", param));
    EXPECT_EQ(PluginLogTexts(), std::vector<std::string>{"failed to transform dstFilePath!"});
}

TEST_F(MigrateWrapperMsgTest, ValidationOrderAndRequiredFieldsPerType) {
    struct Case {
        FileMigrateType type;
        std::string src;
        FileParam param;
        std::string failure;  // empty: valid
    };
    FileParam none{};
    FileParam uidOnly{};
    uidOnly.uid = "1000";
    FileParam gidOnly{};
    gidOnly.gid = "1000";
    FileParam dstOnly{};
    dstOnly.dstFile = std::string(2000, 'd');
    const std::vector<Case> cases = {
        {COPY_ALL_FILE, "", none, "invalid srcFile!"},
        {COPY_ALL_FILE, "/s", none, "invalid dstFile!"},
        {MOVE_SUB_FILE, "/s", none, "invalid dstFile!"},
        {MOVE_ALL_FILE, "/s", none, "invalid dstFile!"},
        {COPY_SUB_FILE, "/s", none, "invalid dstFile!"},
        {CHOWN, "/s", none, "invalid gid uid!"},
        {CHOWN, "/s", uidOnly, ""},
        {CHOWN, "/s", gidOnly, ""},
        {CHMOD, "/s", uidOnly, "invalid perm!"},
        {PREPARE_DIR, "", dstOnly, "invalid srcFile!"},
        {MK_DIR, "/s", none, ""},
        {static_cast<FileMigrateType>(99), "/s", none, ""},
    };
    for (const Case &c : cases) {
        Zarvo::Testing::ResetCaptures();
        MigrateWrapperMsg msg;
        EXPECT_EQ(msg.VerifyMsg(c.type, c.src, c.param), c.failure.empty()) << c.type << c.failure;
        std::vector<Zarvo::Testing::LogLine> expected;
        if (!c.failure.empty()) {
            expected.push_back({LOG_ERROR, c.failure});
        }
        EXPECT_EQ(PluginLogLines(), expected) << c.type;
    }
}

TEST_F(MigrateWrapperMsgTest, ChownWithUidOnlySendsAnAllZeroGidAndUnknownTypesPassUnchanged) {
    FileParam param{};
    param.uid = "1000";
    MigrateWrapperMsg msg;
    ASSERT_TRUE(msg.AssembleMsg(CHOWN, "/p", param));
    ExpectField(msg.GetMsgBuf(), 2084, 32, "");
    ASSERT_TRUE(msg.AssembleMsg(static_cast<FileMigrateType>(99), "/p", FileParam{}));
    EXPECT_EQ(IntAt(msg.GetMsgBuf(), 0), 99);
}

TEST_F(MigrateWrapperMsgTest, ReassemblyStartsFromZeros) {
    FileParam param{};
    param.dstFile = std::string(1000, 'd');
    MigrateWrapperMsg msg;
    ASSERT_TRUE(msg.AssembleMsg(COPY_ALL_FILE, std::string(1000, 's'), param));
    param.dstFile = "/d";
    ASSERT_TRUE(msg.AssembleMsg(COPY_ALL_FILE, "/s", param));
    ExpectField(msg.GetMsgBuf(), 4, 1024, "/s");
    ExpectField(msg.GetMsgBuf(), 1028, 1024, "/d");
}

TEST_F(MigrateWrapperMsgTest, WithoutABufferNothingAssemblesAndTheLengthStays) {
    MigrateWrapperMsg msg;
    msg.FreeMsg();
    msg.FreeMsg();
    EXPECT_EQ(msg.GetMsgBuf(), nullptr);
    EXPECT_EQ(msg.GetMsgLength(), 2388);
    EXPECT_FALSE(msg.AssembleMsg(IS_DIR, "/p", FileParam{}));
    EXPECT_EQ(PluginLogLines(), (std::vector<Zarvo::Testing::LogLine>{{LOG_ERROR, "failed to malloc!"}}));
    Zarvo::Testing::ResetCaptures();
    EXPECT_FALSE(msg.AssembleMsg(IS_DIR, "", FileParam{}));
    EXPECT_EQ(PluginLogTexts(), std::vector<std::string>{"invalid srcFile!"}) << "validation comes first";
}

}  // namespace
