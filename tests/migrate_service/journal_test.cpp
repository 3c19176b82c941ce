// The journal file: owner-only, never opened through a link, and complete once the journal is
// flushed or destroyed although its lines are written in batches.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>

#include "migrate_service/request_journal.h"
#include "test_files.h"

using namespace Zarvo::Testing;
using Zarvo::Host::JournalEntry;
using Zarvo::Host::RequestJournal;

namespace {

const std::string DIR = "/data/journal-test";

size_t LineCount(const std::string &path) {
    std::string text = ReadFile(path);
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(RequestJournalTest, FileIsOwnerOnlyNeverALinkAndHoldsEveryEntryOnceFlushed) {
    std::filesystem::remove_all(DIR);
    std::filesystem::create_directories(DIR);
    const std::string path = DIR + "/journal.jsonl";
    const mode_t previousMask = umask(022);
    {
        RequestJournal journal;
        std::string error;
        ASSERT_TRUE(journal.OpenFile(path, error)) << error;
        for (int i = 0; i < 500; ++i) {
            JournalEntry entry;
            entry.note = "entry " + std::to_string(i);
            journal.Record(entry);
        }
        journal.Flush();
        EXPECT_EQ(LineCount(path), 500u);
        journal.Record(JournalEntry{});
    }
    umask(previousMask);
    EXPECT_EQ(LineCount(path), 501u) << "the last entry is written when the journal ends";
    EXPECT_EQ(Lstat(path).st_mode & 07777, 0600u);
    std::istringstream lines(ReadFile(path));
    std::string first;
    std::getline(lines, first);
    EXPECT_NE(first.find("\"note\":\"entry 0\""), std::string::npos) << first;
    EXPECT_NE(first.find("\"seq\":1"), std::string::npos) << first;

    const std::string target = DIR + "/target";
    WriteFile(target, "keep\n", 0644);
    const std::string link = DIR + "/link.jsonl";
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    RequestJournal journal;
    std::string error;
    EXPECT_FALSE(journal.OpenFile(link, error));
    EXPECT_NE(error.find(link), std::string::npos) << error;
    EXPECT_EQ(ReadFile(target), "keep\n");
}

}  // namespace
