#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "hilog/log.h"
#include "platform_control/log_capture.h"

using namespace Zarvo::Host;

namespace {

std::string Render(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::string text = RenderLogFormat(fmt, args);
    va_end(args);
    return text;
}

TEST(HiLogRender, QualifiersAreStrippedAndPrivateValuesMasked) {
    EXPECT_EQ(Render("%{public}s=%{public}d", "a", -5), "a=-5");
    EXPECT_EQ(Render("%{private}s/%{private}d/%s", "secret", 7, "plain"), "<private>/<private>/plain");
    EXPECT_EQ(
        Render("%{public}zu %{public}08x %{public}ld", static_cast<size_t>(3), 0x5210002u, 12345678901L),
        "3 05210002 12345678901");
    EXPECT_EQ(Render("%{public}lld|%{public}u|%c|%5.2f|%%", -1LL, 4000000000u, 'x', 3.14159),
              "-1|4000000000|x| 3.14|%");
    EXPECT_EQ(Render("%*d|%.*s", 4, 7, 2, "abcdef"), "   7|ab");
    EXPECT_EQ(Render("null %s", static_cast<const char *>(nullptr)), "null (null)");
}

TEST(HiLogRender, PrivateArgumentsStillKeepLaterConversionsInStep) {
    EXPECT_EQ(Render("%{private}lld then %{public}s", 1LL << 40, "next"), "<private> then next");
    EXPECT_EQ(Render("%{private}f then %{public}d", 2.5, 9), "<private> then 9");
}

TEST(HiLogRender, MalformedFormatsAreShownAsTextWithoutTakingArguments) {
    EXPECT_EQ(Render("100%"), "100%");
    EXPECT_EQ(Render("%{public"), "%{public");
    EXPECT_EQ(Render("%{secret}s %{public}s", "v"), "%{secret}s v");
    EXPECT_EQ(Render("%y %{public}d", 3), "%y 3");
    EXPECT_EQ(Render("%n %{public}d", 4), "%n 4");
    EXPECT_EQ(Render("%-"), "%-");
}

TEST(HiLogPrint, RecordsEveryFieldAndTheFilePrefix) {
    ClearCapturedLogs();
    EXPECT_EQ(HiLogPrint(LOG_CORE, LOG_WARN, 0xD001234, "TAG", "[%{public}s(%{public}d)]x=%{public}d",
                         "f.cpp", 12, 3),
              static_cast<int>(std::string("[f.cpp(12)]x=3").size()));
    EXPECT_EQ(HiLogPrint(LOG_CORE, LOG_INFO, 1, nullptr, "x"), -1);
    EXPECT_EQ(HiLogPrint(LOG_CORE, LOG_INFO, 1, "T", nullptr), -1);
    auto records = CapturedLogs();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].level, LOG_WARN);
    EXPECT_EQ(records[0].domain, 0xD001234u);
    EXPECT_EQ(records[0].tag, "TAG");
    EXPECT_EQ(records[0].file, "f.cpp");
    EXPECT_EQ(records[0].line, 12);
    EXPECT_EQ(records[0].message, "[f.cpp(12)]x=3");
    std::string line = FormatLogLine(records[0]);
    EXPECT_NE(line.find(" W C01234/TAG: [f.cpp(12)]x=3"), std::string::npos) << line;
}

TEST(HiLogPrint, WritesDeviceStyleLinesToAFileAndCapturesFromAnyThread) {
    ClearCapturedLogs();
    const std::string path = "/data/hilog.txt";
    ASSERT_TRUE(SetLogOutput(path));
    std::thread other(
        [] { HiLogPrint(LOG_CORE, LOG_ERROR, 0xD002E12, "MIGRATE_PLUGIN", "from %{public}s", "thread"); });
    other.join();
    HiLogPrint(LOG_CORE, LOG_DEBUG, 0xD002E12, "MIGRATE_PLUGIN", "main");
    ASSERT_TRUE(SetLogOutput("off"));
    EXPECT_FALSE(SetLogOutput("/nonexistent-dir/x.log"));

    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    EXPECT_NE(content.str().find(" E C02E12/MIGRATE_PLUGIN: from thread\n"), std::string::npos)
        << content.str();
    EXPECT_NE(content.str().find(" D C02E12/MIGRATE_PLUGIN: main\n"), std::string::npos);
    auto records = CapturedLogs();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_NE(records[0].tid, records[1].tid);
}

}  // namespace
