// The journal file: owner-only, never opened through a link, complete once the journal is flushed
// or destroyed although its lines are written in batches, and each line the text of the entry's
// JSON object however its fields would be escaped.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "migrate_service/request_journal.h"
#include "test_files.h"

using namespace Zarvo::Testing;
using Zarvo::Host::JournalEntry;
using Zarvo::Host::JournalEntryJson;
using Zarvo::Host::JournalEntryToJson;
using Zarvo::Host::JournalOutcome;
using Zarvo::Host::MigrateRequest;
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

TEST(RequestJournalTest, LinesAreTheTextOfTheEntrysJsonObjectWhateverItsFieldsHold) {
    JournalEntry plain;
    plain.seq = UINT64_MAX;
    plain.timeMs = 1763900000123;
    plain.connection = 7;
    plain.outcome = JournalOutcome::REFUSED;
    plain.request.type = 15;
    plain.request.src = "/data/app/el2/100/base/com.example/files/a b~{}[]:,";
    plain.request.dst = "/data/app/el2/100/x";
    plain.request.uid = "1000";
    plain.request.gid = "system";
    plain.request.perm = "0755";
    plain.request.recurseOpt = -2;
    plain.result = -1;
    plain.errCode = 13;
    plain.pkgNum = 3;
    plain.durationUs = -5;
    std::vector<JournalEntry> entries = {JournalEntry{}, plain};
    entries.back().note = "path is outside the allowed roots";
    for (const std::string &odd :
         {std::string("quote\"d"), std::string("back\\slash"), std::string("tab\tnl\n"),
          std::string("\x01\x1f\x7f"), std::string("caf\xc3\xa9"), std::string("bad \xc3 utf-8 \xff\xfe")}) {
        entries.push_back(plain);
        entries.back().note = odd;
        for (std::string MigrateRequest::*text :
             {&MigrateRequest::src, &MigrateRequest::dst, &MigrateRequest::uid, &MigrateRequest::gid,
              &MigrateRequest::perm}) {
            JournalEntry entry = plain;
            entry.request.*text = odd;
            entries.push_back(entry);
        }
    }
    entries.push_back(plain);
    entries.back().request.type = 99;
    entries.back().outcome = JournalOutcome::CLOSED;
    for (const JournalEntry &entry : entries) {
        EXPECT_EQ(JournalEntryToJson(entry),
                  JournalEntryJson(entry).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    }
}

}  // namespace
