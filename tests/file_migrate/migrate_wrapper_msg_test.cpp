#include "migrate_wrapper_msg.h"

#include <gtest/gtest.h>

#include <cstring>

#include "captured_log.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;

namespace {

struct TextField {
    std::string FileParam::*member;  // null for the source path
    size_t offset, width;
    std::string failure;
};
// In the order the request is filled, which is the order in which overlong fields are reported.
const std::vector<TextField> FIELDS = {{nullptr, 4, 1024, "failed to transform srcFilePath!"},
                                       {&FileParam::uid, 2052, 32, "failed to transform uid!"},
                                       {&FileParam::gid, 2084, 32, "failed to transform gid!"},
                                       {&FileParam::perm, 2116, 16, "failed to transform perm!"},
                                       {&FileParam::dstFile, 1028, 1024, "failed to transform dstFilePath!"},
                                       {&FileParam::reserved, 2136, 252, "failed to transform reserved!"}};

std::string &Text(std::string &src, FileParam &param, const TextField &field) {
    return field.member == nullptr ? src : param.*field.member;
}

int32_t IntAt(const char *buf, size_t offset) {
    int32_t value = 0;
    std::memcpy(&value, buf + offset, sizeof(value));
    return value;
}

TEST(MigrateWrapperMsgTest, EveryFieldSitsAtItsOffsetZeroPaddedAndHoldsItsWidthLessOneByte) {
    MigrateWrapperMsg msg;  // one message throughout: every assembly must start again from zeros
    for (const TextField &tested : FIELDS) {
        for (size_t length : {tested.width - 1, tested.width}) {
            ResetCaptures();
            std::string src;
            FileParam param{};
            param.recurseOpt = RECURSE_ALL;
            for (size_t i = 0; i < FIELDS.size(); ++i) {
                Text(src, param, FIELDS[i]) = std::string(1, static_cast<char>('a' + i));
            }
            Text(src, param, tested) = std::string(length, 'x');
            bool fits = length < tested.width;
            ASSERT_EQ(msg.AssembleMsg(MK_DIR, src, param), fits) << tested.failure << " " << length;
            EXPECT_EQ(PluginLogTexts(),
                      fits ? std::vector<std::string>{} : std::vector<std::string>{tested.failure});
            if (!fits) {
                continue;
            }
            const char *buf = msg.GetMsgBuf();
            EXPECT_EQ(msg.GetMsgLength(), 2388);
            EXPECT_EQ(IntAt(buf, 0), MK_DIR);
            EXPECT_EQ(IntAt(buf, 2132), RECURSE_ALL);
            for (const TextField &field : FIELDS) {
                const std::string &text = Text(src, param, field);
                EXPECT_EQ(std::string(buf + field.offset, text.size()), text) << "field at " << field.offset;
                EXPECT_EQ(std::string(buf + field.offset + text.size(), field.width - text.size()),
                          std::string(field.width - text.size(), '\0'))
                    << "padding of the field at " << field.offset;
            }
        }
    }

    std::string src;
    FileParam param{};
    for (const TextField &field : FIELDS) {
        Text(src, param, field) = std::string(field.width, 'x');
    }
    for (const TextField &field : FIELDS) {
        ResetCaptures();
        EXPECT_FALSE(msg.AssembleMsg(MK_DIR, src, param));
        EXPECT_EQ(PluginLogTexts(), std::vector<std::string>{field.failure}) << "only the first is reported";
        Text(src, param, field) = "/ok";
    }
}

TEST(MigrateWrapperMsgTest, RequiredFieldsPerTypeAreCheckedSourceFirst) {
    const FileParam none{}, dst{RECURSE_NONE, "", "", "", "/d", ""};
    const FileParam uid{RECURSE_NONE, "1", "", "", "", ""}, gid{RECURSE_NONE, "", "1", "", "", ""};
    const std::vector<std::tuple<FileMigrateType, std::string, FileParam, std::string>> cases = {
        {COPY_ALL_FILE, "", none, "invalid srcFile!"},
        {PREPARE_DIR, "", dst, "invalid srcFile!"},
        {COPY_ALL_FILE, "/s", none, "invalid dstFile!"},
        {MOVE_SUB_FILE, "/s", none, "invalid dstFile!"},
        {MOVE_ALL_FILE, "/s", none, "invalid dstFile!"},
        {COPY_SUB_FILE, "/s", none, "invalid dstFile!"},
        {CHOWN, "/s", none, "invalid gid uid!"},
        {CHOWN, "/s", uid, ""},
        {CHOWN, "/s", gid, ""},
        {CHMOD, "/s", uid, "invalid perm!"},
        {MK_DIR, "/s", none, ""},
        {static_cast<FileMigrateType>(99), "/s", none, ""},
    };
    for (const auto &[type, src, param, failure] : cases) {
        ResetCaptures();
        EXPECT_EQ(MigrateWrapperMsg().VerifyMsg(type, src, param), failure.empty()) << type << failure;
        std::vector<LogLine> expected;
        if (!failure.empty()) {
            expected.push_back({LOG_ERROR, failure});
        }
        EXPECT_EQ(PluginLogLines(), expected) << type;
    }
}

TEST(MigrateWrapperMsgTest, WithoutABufferNothingIsAssembledAfterValidation) {
    ResetCaptures();
    MigrateWrapperMsg msg;
    msg.FreeMsg();
    msg.FreeMsg();
    EXPECT_EQ(msg.GetMsgBuf(), nullptr);
    EXPECT_FALSE(msg.AssembleMsg(IS_DIR, "", FileParam{}));
    EXPECT_FALSE(msg.AssembleMsg(IS_DIR, "/p", FileParam{}));
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{{LOG_ERROR, "invalid srcFile!"}, {LOG_ERROR, "failed to malloc!"}}));
}

}  // namespace
