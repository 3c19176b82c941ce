#include "update_log.h"

#include <gtest/gtest.h>

#include "captured_log.h"

using namespace Zarvo::UpdateEngine;
using Zarvo::Host::CapturedLogs;
using Zarvo::Host::LogRecord;

namespace {

class UpdateLogTest : public testing::Test {
protected:
    void SetUp() override { Zarvo::Testing::ResetCaptures(); }

    static UpdateLogContent Content(UpdateLogLevel level, const std::string &log, const std::string &args) {
        return UpdateLogContent{UPDATE_LABEL[MIGRATE_PLUGIN_LABEL], level, log, args,
                                "/src/dir/some_file.cpp",           42};
    }
};

TEST_F(UpdateLogTest, MacroLineCarriesLevelDomainTagAndBriefFilePrefix) {
    const int line = __LINE__ + 1;
    PLUGIN_LOGE("CheckFileExist file is not exist errno is %{public}d, fileName is %{public}s", 2, "/data/x");
    PLUGIN_LOGI("plain info");
    PLUGIN_LOGD("debug %{private}s", "secret");

    std::vector<LogRecord> records = CapturedLogs();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].type, LOG_CORE);
    EXPECT_EQ(records[0].level, LOG_ERROR);
    EXPECT_EQ(records[0].domain, 0xD002E12u);
    EXPECT_EQ(records[0].tag, "MIGRATE_PLUGIN");
    EXPECT_EQ(records[0].file, "update_log_test.cpp");
    EXPECT_EQ(records[0].line, line);
    EXPECT_EQ(records[0].message, "[update_log_test.cpp(" + std::to_string(line) +
                                      ")]CheckFileExist file is not exist errno is 2, fileName is /data/x");
    EXPECT_EQ(records[1].level, LOG_INFO);
    EXPECT_EQ(records[2].level, LOG_DEBUG);
    EXPECT_EQ(records[2].message, "[update_log_test.cpp(" + std::to_string(line + 2) + ")]debug <private>");
}

TEST_F(UpdateLogTest, PrintLogSplitsLongValuesIntoPiecesOf900Bytes) {
    struct Case {
        size_t length;
        std::vector<size_t> pieces;
    } cases[] = {{0, {}}, {1, {1}}, {900, {900}}, {1800, {900, 900}}, {1801, {900, 900, 1}}};
    for (const auto &c : cases) {
        Zarvo::Testing::ResetCaptures();
        std::string args;
        for (size_t i = 0; i < c.length; ++i) {
            args += static_cast<char>('a' + i % 26);
        }
        UpdateLog::PrintLog(MIGRATE_PLUGIN_LABEL, Content(UPDATE_LOG_INFO, LOG_LABEL_PUBLIC, args));
        std::vector<LogRecord> records = CapturedLogs();
        ASSERT_EQ(records.size(), c.pieces.size()) << "length " << c.length;
        std::string joined;
        for (size_t i = 0; i < records.size(); ++i) {
            const std::string prefix = "[some_file.cpp(42)]";
            ASSERT_EQ(records[i].message.compare(0, prefix.size(), prefix), 0);
            std::string piece = records[i].message.substr(prefix.size());
            EXPECT_EQ(piece.size(), c.pieces[i]);
            EXPECT_EQ(records[i].format, "[%{public}s(%{public}d)]%{public}s");
            joined += piece;
        }
        EXPECT_EQ(joined, args);
    }
}

TEST_F(UpdateLogTest, PrintSingleLineMapsLevelsAndLabels) {
    UpdateLog::PrintSingleLine(MIGRATE_PLUGIN_LABEL, Content(UPDATE_LOG_DEBUG, LOG_LABEL_PRIVATE, "v"));
    UpdateLog::PrintSingleLine(0, Content(UPDATE_LOG_INFO, LOG_LABEL_PLAIN, "v"));
    UpdateLog::PrintSingleLine(9, Content(UPDATE_LOG_ERROR, LOG_LABEL_PUBLIC, "v"));
    UpdateLog::PrintSingleLine(MIGRATE_PLUGIN_LABEL, Content(UPDATE_LOG_WARN, LOG_LABEL_PUBLIC, "v"));
    UpdateLog::PrintSingleLine(MIGRATE_PLUGIN_LABEL,
                               Content(static_cast<UpdateLogLevel>(7), LOG_LABEL_PUBLIC, "v"));
    UpdateLog::PrintSingleLine(UPDATE_LABEL_COUNT, Content(UPDATE_LOG_INFO, LOG_LABEL_PUBLIC, "v"));

    std::vector<LogRecord> records = CapturedLogs();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].level, LOG_DEBUG);
    EXPECT_EQ(records[0].format, "[%{public}s(%{public}d)]%{private}s");
    EXPECT_EQ(records[0].message, "[some_file.cpp(42)]<private>");
    EXPECT_EQ(records[1].level, LOG_INFO);
    EXPECT_EQ(records[1].domain, 0xD002E00u);
    EXPECT_EQ(records[1].tag, "UPDATE_SA");
    EXPECT_EQ(records[1].format, "[%{public}s(%{public}d)]%s");
    EXPECT_EQ(records[2].level, LOG_ERROR);
    EXPECT_EQ(records[2].domain, 0xD002E15u);
    EXPECT_EQ(records[2].tag, "DEVICE_ACTIVATE_SERVICE");
}

TEST_F(UpdateLogTest, PrintLongLogPrintsFixedTextPublicAndValueUnderItsLabel) {
    UpdateLogContent content = Content(UPDATE_LOG_INFO, "token is %{private}s, end", "abc");
    UpdateLog::PrintLongLog(MIGRATE_PLUGIN_LABEL, content);
    std::vector<LogRecord> records = CapturedLogs();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].message, "[some_file.cpp(42)]token is ");
    EXPECT_EQ(records[1].message, "[some_file.cpp(42)]<private>");
    EXPECT_EQ(records[1].format, "[%{public}s(%{public}d)]%{private}s");
    EXPECT_EQ(records[2].message, "[some_file.cpp(42)], end");

    // Without a usable label: the whole text as one public line, then the value under plain "%s".
    Zarvo::Testing::ResetCaptures();
    UpdateLog::PrintLongLog(MIGRATE_PLUGIN_LABEL, Content(UPDATE_LOG_INFO, "no label here", "value"));
    records = CapturedLogs();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].message, "[some_file.cpp(42)]no label here");
    EXPECT_EQ(records[1].format, "[%{public}s(%{public}d)]%s");
    EXPECT_EQ(records[1].message, "[some_file.cpp(42)]value");

    // A label at the very start leaves an empty prefix, which prints nothing.
    Zarvo::Testing::ResetCaptures();
    UpdateLog::PrintLongLog(MIGRATE_PLUGIN_LABEL, Content(UPDATE_LOG_ERROR, "%{public}s", "x"));
    EXPECT_EQ(CapturedLogs().size(), 1u);
}

TEST_F(UpdateLogTest, FormatLabelNeedsExactlyOnePercentSign) {
    EXPECT_EQ(UpdateLog::GetFmtLabel("value %{public}s."), "%{public}s");
    EXPECT_EQ(UpdateLog::GetFmtLabel("value %{private}s."), "%{private}s");
    EXPECT_EQ(UpdateLog::GetFmtLabel("value %s."), "%s");
    EXPECT_EQ(UpdateLog::GetFmtLabel("%{public}s and %{public}s"), "");
    EXPECT_EQ(UpdateLog::GetFmtLabel("no conversion"), "");
    EXPECT_EQ(UpdateLog::GetFmtLabel("100% and %s"), "");
    EXPECT_EQ(UpdateLog::GetFmtLabel("only %d"), "");
}

TEST_F(UpdateLogTest, TextHelpers) {
    EXPECT_EQ(UpdateLog::FindSubStrCount("aaaa", "aa"), 3);
    EXPECT_EQ(UpdateLog::FindSubStrCount("abc", ""), 4);
    EXPECT_EQ(UpdateLog::FindSubStrCount("", "a"), 0);

    EXPECT_EQ(UpdateLog::SplitLogByFmtLabel("a %s b", "%s"),
              std::make_pair(std::string("a "), std::string(" b")));
    EXPECT_EQ(UpdateLog::SplitLogByFmtLabel("a b", ""), std::make_pair(std::string("a b"), std::string()));

    EXPECT_EQ(UpdateLog::GetBriefFileName("/a/b/c/file.cpp"), "file.cpp");
    EXPECT_EQ(UpdateLog::GetBriefFileName("/a/b/"), "");
    EXPECT_EQ(UpdateLog::GetBriefFileName("a\\b\\win.cpp"), "win.cpp");
    EXPECT_EQ(UpdateLog::GetBriefFileName("bare.cpp"), "bare.cpp");

    EXPECT_EQ(UpdateLog::OutputDueUploadLog("[%{public}s(%{public}d)]x %{public}s"), "[%s(%d)]x %s");
    EXPECT_EQ(UpdateLog::OutputDueUploadLog("%{public"), "%{public");
    EXPECT_EQ(UpdateLog::OutputDueUploadLog("%{private}s"), "%{private}s");
}

TEST_F(UpdateLogTest, StoredLevelDefaultsToInfoAndNeverFilters) {
    EXPECT_EQ(UpdateLog::GetLogLevel(), UPDATE_LOG_INFO);
    UpdateLog::SetLogLevel(UPDATE_LOG_ERROR);
    EXPECT_EQ(UpdateLog::GetLogLevel(), UPDATE_LOG_ERROR);
    EXPECT_TRUE(UpdateLog::JudgeLevel(UPDATE_LOG_DEBUG));
    UpdateLog::PrintSingleLine(MIGRATE_PLUGIN_LABEL,
                               Content(UPDATE_LOG_DEBUG, LOG_LABEL_PUBLIC, "still printed"));
    EXPECT_EQ(CapturedLogs().size(), 1u);
    UpdateLog::SetLogLevel(UPDATE_LOG_INFO);
}

}  // namespace
