#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "service_fixture.h"

using namespace Zarvo::Testing;
using Zarvo::Host::MigrateOp;

namespace {

class OperationsTest : public ServiceFixture {};

// One request after the other on a small tree: the result, the errno and the one package text, if any.
TEST_F(OperationsTest, PlainAnswersAreAResultOrMinusOneWithAnErrno) {
    const std::string w = WORK_ROOT;
    WriteFile(w + "/a/file", "x");
    symlink((w + "/a").c_str(), (w + "/link").c_str());
    WriteFile(w + "/s/a", std::string(1000, 'a'));
    WriteFile(w + "/s/d/b", std::string(234, 'b'));
    symlink("/etc/passwd", (w + "/s/link").c_str());
    WriteFile(w + "/c/a,b", "");
    WriteFile(w + "/r/a/b", "");
    WriteFile(APP_ROOT + "/100/base/file", "");
    struct Row {
        MigrateOp op;
        std::string src, dst;
        int32_t recurseOpt, result, errCode;
        std::string text;
    };
    const std::vector<Row> rows = {
        {MigrateOp::IS_FILE_EXIST, w + "/a/file", "", 0, 0, 0, ""},
        {MigrateOp::IS_FILE_EXIST, w + "/a/none", "", 0, -1, ENOENT, ""},
        {MigrateOp::IS_FILE_EXIST, w + "/link", "", 0, 0, 0, ""},
        {MigrateOp::IS_DIR, w + "/a", "", 0, 0, 0, ""},
        {MigrateOp::IS_DIR, w + "/a/file", "", 0, -1, ENOTDIR, ""},
        {MigrateOp::IS_DIR, w + "/link", "", 0, -1, ENOTDIR, ""},  // the final link is not followed
        {MigrateOp::GET_PATH_LIST, w + "/s/", "", 0, 0, 0,
         w + "/s/a:0," + w + "/s/d:1," + w + "/s/d/b:0," + w + "/s/link:0"},
        {MigrateOp::GET_PATH_LIST, w + "/c", "", 0, -1, EILSEQ, ""},  // a comma would split the entry
        {MigrateOp::GET_EXIST_DIRECTORY, APP_ROOT + "/100/base/x/y", "", 0, 0, 0, APP_ROOT + "/100/base"},
        {MigrateOp::GET_EXIST_DIRECTORY, APP_ROOT + "/100/base/file/x", "", 0, 0, 0, APP_ROOT + "/100/base"},
        {MigrateOp::GET_EXIST_DIRECTORY, APP_ROOT + "/nothing", "", 0, 0, 0,
         APP_ROOT},                                                // never above the root
        {MigrateOp::GET_PATH_SIZE, w + "/s", "", 0, 1234, 0, ""},  // regular files only
        {MigrateOp::GET_PATH_SIZE, w + "/s/a", "", 0, 1000, 0, ""},
        {MigrateOp::GET_PATH_SIZE, w + "/none", "", 0, -1, ENOENT, ""},
        {MigrateOp::REMOVE_FILE, w + "/r", "", 0, 0, 0, ""},
        {MigrateOp::REMOVE_FILE, w + "/r", "", 0, -1, ENOENT, ""},
        {MigrateOp::TRY_REMOVE, w + "/r", "", 0, 0, 0, ""},
        {MigrateOp::TRY_REMOVE, w + "/r/deeper/still", "", 0, 0, 0, ""},
        {MigrateOp::MK_DIR, w + "/p/q/r", "", 0, -1, ENOENT, ""},
        {MigrateOp::MK_DIR, w + "/p/q/r", "", 2, 0, 0, ""},
        {MigrateOp::MK_DIR, w + "/p/q/r", "", 2, 0, 0, ""},
        {MigrateOp::GET_PATH_LIST, w + "/p/q/r", "", 0, 0, 0, ""},  // empty: no packages
        {MigrateOp::MK_DIR, w + "/a/file", "", 0, -1, EEXIST, ""},
        {MigrateOp::PREPARE_DIR, APP_ROOT + "/200/new", "", 0, -1, ENOENT, ""},
        {MigrateOp::RESTORE_CON, w + "/a/file", "", 0, 0, 0, ""},
        {MigrateOp::RESTORECON_FROM_PARENT, w + "/a/file", "", 0, 0, 0, ""},
        {MigrateOp::RESTORE_CON, w + "/none", "", 0, -1, ENOENT, ""},
        {MigrateOp::MOVE_ALL_FILE, w + "/none", w + "/x", 0, -1, ENOENT, ""},
        {MigrateOp::MOVE_ALL_FILE, w + "/a", "", 0, -1, EINVAL, ""},
        {MigrateOp::COPY_ALL_FILE, w + "/a", w + "/a/x", 0, -1, EINVAL, ""},  // into itself
        {MigrateOp::CHOWN, w + "/a", "", 0, -1, EINVAL, ""},                  // neither owner nor group
        {static_cast<MigrateOp>(99), w + "/a", "", 0, -1, EOPNOTSUPP, ""},
    };
    for (const Row &row : rows) {
        Zarvo::Host::MigrateRequest request = Request(row.op, row.src, row.dst);
        request.recurseOpt = row.recurseOpt;
        RawReply reply = Exchange(request);
        std::string label = Zarvo::Host::MigrateOpName(request.type) + " " + row.src;
        EXPECT_TRUE(reply.complete) << label;
        EXPECT_EQ(reply.result, row.result) << label;
        EXPECT_EQ(reply.errCode, row.errCode) << label;
        EXPECT_EQ(reply.texts,
                  row.text.empty() ? std::vector<std::string>{} : std::vector<std::string>{row.text})
            << label;
    }
    EXPECT_EQ(LastJournalEntry().outcome, Zarvo::Host::JournalOutcome::REFUSED);
    EXPECT_EQ(Lstat(w + "/p/q/r").st_mode & 07777, 0700u);
    EXPECT_FALSE(Exists(w + "/r"));
    EXPECT_FALSE(Exists(APP_ROOT + "/200"));
}

// Enough long names for several packages; an entry split across two would not read back.
TEST_F(OperationsTest, LongPathListSpreadsOverPackagesWithoutSplittingAnEntry) {
    std::vector<std::string> expected;
    for (int i = 0; i < 60; ++i) {
        std::string path = WORK_ROOT + "/many/" + std::string(100, 'f') + std::to_string(1000 + i);
        WriteFile(path, "");
        expected.push_back(path + ":0");
    }
    RawReply reply = Exchange(Request(MigrateOp::GET_PATH_LIST, WORK_ROOT + "/many"));
    EXPECT_TRUE(reply.complete);
    EXPECT_GT(reply.pkgNum, 1);
    std::vector<std::string> listed;
    for (const std::string &text : reply.texts) {
        std::istringstream stream(text);
        for (std::string entry; std::getline(stream, entry, ',');) {
            listed.push_back(entry);
        }
    }
    EXPECT_EQ(listed, expected);
}

TEST_F(OperationsTest, PrepareDirMakesParentsAndSetsOwnerGroupModeByNumberOrName) {
    auto request = Request(MigrateOp::PREPARE_DIR, APP_ROOT + "/100/base/app/files");
    request.uid = "20010037";
    request.gid = "20010038";
    request.perm = "0750";
    request.recurseOpt = 2;
    EXPECT_EQ(Exchange(request).result, 0) << LastJournalEntry().note;
    struct stat st = Lstat(request.src);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_uid, 20010037u);
    EXPECT_EQ(st.st_gid, 20010038u);
    EXPECT_EQ(st.st_mode & 07777, 0750u);
    EXPECT_EQ(Lstat(APP_ROOT + "/100/base").st_mode & 07777, 0711u);

    request.src = WORK_ROOT + "/convert";
    request.uid = request.gid = "migrate_server";
    EXPECT_EQ(Exchange(request).result, 0);
    st = Lstat(request.src);
    EXPECT_EQ(st.st_uid, geteuid());
    EXPECT_EQ(st.st_gid, getegid());
}

TEST_F(OperationsTest, BadOwnerModeOrRecursionIsRefusedBeforeAnythingIsMade) {
    struct Case {
        std::string uid, gid, perm;
        int32_t recurseOpt;
        int err;
    };
    for (const Case &c : std::vector<Case>{{"no_such_user_x", "", "0700", 2, EINVAL},
                                           {"", "12abc", "0700", 2, EINVAL},
                                           {"", "", "0800", 2, EINVAL},
                                           {"", "", "4755", 2, EPERM},
                                           {"", "", "0700", 1, EINVAL},
                                           {"4294967295", "", "0700", 2, EINVAL}}) {
        auto request = Request(MigrateOp::PREPARE_DIR, APP_ROOT + "/x/y");
        request.uid = c.uid;
        request.gid = c.gid;
        request.perm = c.perm;
        request.recurseOpt = c.recurseOpt;
        RawReply reply = Exchange(request);
        EXPECT_EQ(reply.result, -1) << c.uid << c.gid << c.perm;
        EXPECT_EQ(reply.errCode, c.err) << c.uid << c.gid << c.perm;
        EXPECT_EQ(LastJournalEntry().outcome, Zarvo::Host::JournalOutcome::REFUSED);
        EXPECT_FALSE(Exists(APP_ROOT + "/x"));
    }
}

TEST_F(OperationsTest, CopiesKeepContentAndLinksAndReplaceAnExistingFile) {
    WriteFile(WORK_ROOT + "/src.json", "{\"a\":1}", 0640);
    WriteFile(APP_ROOT + "/dst/old.json", "old");
    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/src.json", APP_ROOT + "/dst/old.json"))
                  .result,
              0);
    EXPECT_EQ(ReadFile(APP_ROOT + "/dst/old.json"), "{\"a\":1}");
    EXPECT_EQ(ReadFile(WORK_ROOT + "/src.json"), "{\"a\":1}");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(APP_ROOT + "/dst"), {}), 1)
        << "no temporary left";

    WriteFile(WORK_ROOT + "/tree/f", "f");
    WriteFile(WORK_ROOT + "/tree/d/g", "g");
    symlink("f", (WORK_ROOT + "/tree/l").c_str());
    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/tree", APP_ROOT + "/tree")).result, 0);
    EXPECT_EQ(ReadFile(APP_ROOT + "/tree/d/g"), "g");
    EXPECT_TRUE(S_ISLNK(Lstat(APP_ROOT + "/tree/l").st_mode));
    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_SUB_FILE, WORK_ROOT + "/tree", APP_ROOT + "/into")).result, 0);
    EXPECT_EQ(ReadFile(APP_ROOT + "/into/f"), "f");
    EXPECT_EQ(ReadFile(APP_ROOT + "/into/d/g"), "g");
    EXPECT_FALSE(Exists(APP_ROOT + "/into/tree"));
}

TEST_F(OperationsTest, MovesRenameTheSourceOrItsEntries) {
    WriteFile(WORK_ROOT + "/m/one", "1");
    WriteFile(WORK_ROOT + "/m/two/three", "3");
    std::filesystem::create_directories(APP_ROOT + "/target");
    EXPECT_EQ(Exchange(Request(MigrateOp::MOVE_SUB_FILE, WORK_ROOT + "/m", APP_ROOT + "/target")).result, 0);
    EXPECT_EQ(ReadFile(APP_ROOT + "/target/two/three"), "3");
    EXPECT_TRUE(std::filesystem::is_empty(WORK_ROOT + "/m"));
    EXPECT_EQ(Exchange(Request(MigrateOp::MOVE_ALL_FILE, APP_ROOT + "/target", WORK_ROOT + "/moved")).result,
              0);
    EXPECT_EQ(ReadFile(WORK_ROOT + "/moved/one"), "1");
    EXPECT_FALSE(Exists(APP_ROOT + "/target"));
}

TEST_F(OperationsTest, ChownAndChmodReachBelowOnlyWithRecursion) {
    WriteFile(WORK_ROOT + "/o/inner/f", "", 0600);
    auto chown = Request(MigrateOp::CHOWN, WORK_ROOT + "/o");
    chown.uid = "1234";
    EXPECT_EQ(Exchange(chown).result, 0);
    EXPECT_EQ(Lstat(WORK_ROOT + "/o").st_uid, 1234u);
    EXPECT_EQ(Lstat(WORK_ROOT + "/o").st_gid, 0u) << "an empty group leaves the group";
    EXPECT_EQ(Lstat(WORK_ROOT + "/o/inner/f").st_uid, 0u);
    chown.gid = "root";
    chown.recurseOpt = 2;
    EXPECT_EQ(Exchange(chown).result, 0);
    EXPECT_EQ(Lstat(WORK_ROOT + "/o/inner/f").st_uid, 1234u);

    auto chmod = Request(MigrateOp::CHMOD, WORK_ROOT + "/o");
    chmod.perm = "0751";
    chmod.recurseOpt = 2;
    EXPECT_EQ(Exchange(chmod).result, 0);
    EXPECT_EQ(Lstat(WORK_ROOT + "/o/inner/f").st_mode & 07777, 0751u);
}

}  // namespace
