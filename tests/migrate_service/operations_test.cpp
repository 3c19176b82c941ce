#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "service_fixture.h"

using namespace Zarvo::Testing;
using Zarvo::Host::MigrateOp;

namespace {

class OperationsTest : public ServiceFixture {};

TEST_F(OperationsTest, ExistenceAndTypeTestsDoNotFollowTheFinalLink) {
    WriteFile(WORK_ROOT + "/a/file", "x");
    symlink((WORK_ROOT + "/a").c_str(), (WORK_ROOT + "/link").c_str());

    EXPECT_EQ(Exchange(Request(MigrateOp::IS_FILE_EXIST, WORK_ROOT + "/a/file")).result, 0);
    RawReply missing = Exchange(Request(MigrateOp::IS_FILE_EXIST, WORK_ROOT + "/a/none"));
    EXPECT_EQ(missing.result, -1);
    EXPECT_EQ(missing.errCode, ENOENT);

    EXPECT_EQ(Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT + "/a")).result, 0);
    RawReply file = Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT + "/a/file"));
    EXPECT_EQ(file.result, -1);
    EXPECT_EQ(file.errCode, ENOTDIR);
    RawReply link = Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT + "/link"));
    EXPECT_EQ(link.errCode, ENOTDIR);
    EXPECT_EQ(Exchange(Request(MigrateOp::IS_FILE_EXIST, WORK_ROOT + "/link")).result, 0);
}

TEST_F(OperationsTest, PathListNamesEveryEntryDepthFirstWithDirectorySuffix) {
    WriteFile(WORK_ROOT + "/t/b/inner", "1");
    WriteFile(WORK_ROOT + "/t/a", "2");
    RawReply reply = Exchange(Request(MigrateOp::GET_PATH_LIST, WORK_ROOT + "/t/"));
    ASSERT_TRUE(reply.complete);
    EXPECT_EQ(reply.result, 0);
    ASSERT_EQ(reply.pkgNum, 1);
    EXPECT_EQ(reply.texts[0], WORK_ROOT + "/t/a:0," + WORK_ROOT + "/t/b:1," + WORK_ROOT + "/t/b/inner:0");

    std::filesystem::create_directories(WORK_ROOT + "/empty");
    RawReply empty = Exchange(Request(MigrateOp::GET_PATH_LIST, WORK_ROOT + "/empty"));
    EXPECT_EQ(empty.result, 0);
    EXPECT_EQ(empty.pkgNum, 0);
}

TEST_F(OperationsTest, LongPathListSpreadsOverPackagesWithoutSplittingAnEntry) {
    std::string dir = WORK_ROOT + "/many";
    const int count = 60;
    for (int i = 0; i < count; ++i) {
        WriteFile(dir + "/" + std::string(100, 'f') + std::to_string(1000 + i), "");
    }
    RawReply reply = Exchange(Request(MigrateOp::GET_PATH_LIST, dir));
    ASSERT_TRUE(reply.complete);
    ASSERT_GT(reply.pkgNum, 1);
    int entries = 0;
    for (const std::string &text : reply.texts) {
        EXPECT_LE(text.size(), 4087u);
        size_t start = 0;
        while (start <= text.size()) {
            size_t comma = text.find(',', start);
            std::string entry =
                text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
            EXPECT_EQ(entry.rfind(dir + "/", 0), 0u) << entry;
            EXPECT_EQ(entry.substr(entry.size() - 2), ":0");
            ++entries;
            if (comma == std::string::npos) {
                break;
            }
            start = comma + 1;
        }
    }
    EXPECT_EQ(entries, count);
}

TEST_F(OperationsTest, PathListWithACommaInANameIsRefusedRatherThanMisread) {
    WriteFile(WORK_ROOT + "/c/a,b", "");
    RawReply reply = Exchange(Request(MigrateOp::GET_PATH_LIST, WORK_ROOT + "/c"));
    EXPECT_EQ(reply.result, -1);
    EXPECT_EQ(reply.errCode, EILSEQ);
    EXPECT_EQ(reply.pkgNum, 0);
}

TEST_F(OperationsTest, PrepareDirMakesParentsAndSetsOwnerGroupModeByNumberOrName) {
    RawRequest request = Request(MigrateOp::PREPARE_DIR, APP_ROOT + "/100/base/app/files");
    request.dst = request.src;
    request.uid = "20010037";
    request.gid = "20010038";
    request.perm = "0750";
    request.recurseOpt = 2;
    RawReply reply = Exchange(request);
    EXPECT_EQ(reply.result, 0) << LastJournalEntry().note;
    struct stat st = Lstat(APP_ROOT + "/100/base/app/files");
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_uid, 20010037u);
    EXPECT_EQ(st.st_gid, 20010038u);
    EXPECT_EQ(st.st_mode & 07777, 0750u);
    EXPECT_EQ(Lstat(APP_ROOT + "/100/base").st_mode & 07777, 0711u);

    request.src = WORK_ROOT + "/convert";
    request.uid = "migrate_server";
    request.gid = "migrate_server";
    request.perm = "0700";
    EXPECT_EQ(Exchange(request).result, 0);
    st = Lstat(WORK_ROOT + "/convert");
    EXPECT_EQ(st.st_uid, geteuid());
    EXPECT_EQ(st.st_gid, getegid());
    EXPECT_EQ(st.st_mode & 07777, 0700u);
}

TEST_F(OperationsTest, PrepareDirWithoutRecursionNeedsTheParent) {
    RawRequest request = Request(MigrateOp::PREPARE_DIR, APP_ROOT + "/100/new");
    request.perm = "0700";
    RawReply reply = Exchange(request);
    EXPECT_EQ(reply.result, -1);
    EXPECT_EQ(reply.errCode, ENOENT);
    EXPECT_FALSE(Exists(APP_ROOT + "/100"));
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
        RawRequest request = Request(MigrateOp::PREPARE_DIR, APP_ROOT + "/x/y");
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

TEST_F(OperationsTest, CopyAllFileCopiesContentAndModeAndReplacesAnExistingFile) {
    WriteFile(WORK_ROOT + "/src.json", "{\"a\":1}", 0640);
    WriteFile(APP_ROOT + "/dst/old.json", "old");
    RawReply reply =
        Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/src.json", APP_ROOT + "/dst/old.json"));
    EXPECT_EQ(reply.result, 0) << LastJournalEntry().note;
    EXPECT_EQ(ReadFile(APP_ROOT + "/dst/old.json"), "{\"a\":1}");
    EXPECT_EQ(Lstat(APP_ROOT + "/dst/old.json").st_mode & 0777, 0640u);
    EXPECT_EQ(ReadFile(WORK_ROOT + "/src.json"), "{\"a\":1}");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(APP_ROOT + "/dst"), {}), 1);
}

TEST_F(OperationsTest, CopyTreesKeepLinksAsLinksAndSubVariantsCopyOnlyTheEntries) {
    WriteFile(WORK_ROOT + "/tree/f", "f");
    WriteFile(WORK_ROOT + "/tree/d/g", "g");
    symlink("f", (WORK_ROOT + "/tree/l").c_str());
    std::filesystem::create_directories(APP_ROOT + "/all");
    std::filesystem::create_directories(APP_ROOT + "/sub");

    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/tree", APP_ROOT + "/all/tree")).result,
              0);
    EXPECT_EQ(ReadFile(APP_ROOT + "/all/tree/d/g"), "g");
    EXPECT_TRUE(S_ISLNK(Lstat(APP_ROOT + "/all/tree/l").st_mode));

    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_SUB_FILE, WORK_ROOT + "/tree", APP_ROOT + "/sub/into")).result,
              0);
    EXPECT_EQ(ReadFile(APP_ROOT + "/sub/into/f"), "f");
    EXPECT_EQ(ReadFile(APP_ROOT + "/sub/into/d/g"), "g");
    EXPECT_FALSE(Exists(APP_ROOT + "/sub/into/tree"));

    RawReply intoItself =
        Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/tree", WORK_ROOT + "/tree/d/x"));
    EXPECT_EQ(intoItself.errCode, EINVAL);
}

TEST_F(OperationsTest, MovesRenameTheSourceOrItsEntries) {
    WriteFile(WORK_ROOT + "/m/one", "1");
    WriteFile(WORK_ROOT + "/m/two/three", "3");
    std::filesystem::create_directories(APP_ROOT + "/target");

    EXPECT_EQ(Exchange(Request(MigrateOp::MOVE_SUB_FILE, WORK_ROOT + "/m", APP_ROOT + "/target")).result, 0);
    EXPECT_EQ(ReadFile(APP_ROOT + "/target/one"), "1");
    EXPECT_EQ(ReadFile(APP_ROOT + "/target/two/three"), "3");
    EXPECT_TRUE(std::filesystem::is_empty(WORK_ROOT + "/m"));

    EXPECT_EQ(Exchange(Request(MigrateOp::MOVE_ALL_FILE, APP_ROOT + "/target", WORK_ROOT + "/moved")).result,
              0);
    EXPECT_EQ(ReadFile(WORK_ROOT + "/moved/one"), "1");
    EXPECT_FALSE(Exists(APP_ROOT + "/target"));

    RawReply missing = Exchange(Request(MigrateOp::MOVE_ALL_FILE, WORK_ROOT + "/none", WORK_ROOT + "/x"));
    EXPECT_EQ(missing.errCode, ENOENT);
    RawReply noDst = Exchange(Request(MigrateOp::MOVE_ALL_FILE, WORK_ROOT + "/moved"));
    EXPECT_EQ(noDst.errCode, EINVAL);
}

TEST_F(OperationsTest, RemoveAndTryRemoveDifferOnlyForAMissingPath) {
    WriteFile(WORK_ROOT + "/r/a/b", "");
    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, WORK_ROOT + "/r")).result, 0);
    EXPECT_FALSE(Exists(WORK_ROOT + "/r"));
    RawReply again = Exchange(Request(MigrateOp::REMOVE_FILE, WORK_ROOT + "/r"));
    EXPECT_EQ(again.result, -1);
    EXPECT_EQ(again.errCode, ENOENT);
    EXPECT_EQ(Exchange(Request(MigrateOp::TRY_REMOVE, WORK_ROOT + "/r")).result, 0);
    EXPECT_EQ(Exchange(Request(MigrateOp::TRY_REMOVE, WORK_ROOT + "/r/deeper/still")).result, 0);
}

TEST_F(OperationsTest, MkDirRecursionDecidesWhetherParentsAreMade) {
    RawRequest request = Request(MigrateOp::MK_DIR, WORK_ROOT + "/p/q/r");
    RawReply flat = Exchange(request);
    EXPECT_EQ(flat.errCode, ENOENT);
    request.recurseOpt = 2;
    EXPECT_EQ(Exchange(request).result, 0);
    EXPECT_EQ(Lstat(WORK_ROOT + "/p/q/r").st_mode & 07777, 0700u);
    EXPECT_EQ(Exchange(request).result, 0) << "an existing directory is success";
    WriteFile(WORK_ROOT + "/file", "");
    EXPECT_EQ(Exchange(Request(MigrateOp::MK_DIR, WORK_ROOT + "/file")).errCode, EEXIST);
}

TEST_F(OperationsTest, ChownAndChmodReachBelowOnlyWithRecursion) {
    WriteFile(WORK_ROOT + "/o/inner/f", "", 0600);
    RawRequest chown = Request(MigrateOp::CHOWN, WORK_ROOT + "/o");
    chown.uid = "1234";
    EXPECT_EQ(Exchange(chown).result, 0);
    EXPECT_EQ(Lstat(WORK_ROOT + "/o").st_uid, 1234u);
    EXPECT_EQ(Lstat(WORK_ROOT + "/o").st_gid, 0u) << "an empty group leaves the group";
    EXPECT_EQ(Lstat(WORK_ROOT + "/o/inner/f").st_uid, 0u);
    chown.gid = "root";
    chown.recurseOpt = 2;
    EXPECT_EQ(Exchange(chown).result, 0);
    EXPECT_EQ(Lstat(WORK_ROOT + "/o/inner/f").st_uid, 1234u);

    RawRequest chmod = Request(MigrateOp::CHMOD, WORK_ROOT + "/o");
    chmod.perm = "0751";
    chmod.recurseOpt = 2;
    EXPECT_EQ(Exchange(chmod).result, 0);
    EXPECT_EQ(Lstat(WORK_ROOT + "/o/inner/f").st_mode & 07777, 0751u);

    RawRequest noOwner = Request(MigrateOp::CHOWN, WORK_ROOT + "/o");
    EXPECT_EQ(Exchange(noOwner).errCode, EINVAL);
}

TEST_F(OperationsTest, RestoreconIsANoOpThatStillNeedsAnExistingAllowedPath) {
    WriteFile(WORK_ROOT + "/sel", "");
    EXPECT_EQ(Exchange(Request(MigrateOp::RESTORE_CON, WORK_ROOT + "/sel")).result, 0);
    EXPECT_EQ(Exchange(Request(MigrateOp::RESTORECON_FROM_PARENT, WORK_ROOT + "/sel")).result, 0);
    EXPECT_EQ(Exchange(Request(MigrateOp::RESTORE_CON, WORK_ROOT + "/none")).errCode, ENOENT);
    EXPECT_EQ(Exchange(Request(MigrateOp::RESTORE_CON, "/etc/passwd")).errCode, EACCES);
}

TEST_F(OperationsTest, ExistDirectoryIsTheDeepestExistingDirectoryOfThePath) {
    std::filesystem::create_directories(APP_ROOT + "/100/base");
    WriteFile(APP_ROOT + "/100/base/file", "");
    RawReply reply = Exchange(Request(MigrateOp::GET_EXIST_DIRECTORY, APP_ROOT + "/100/base/x/y/z"));
    ASSERT_TRUE(reply.complete);
    EXPECT_EQ(reply.result, 0);
    ASSERT_EQ(reply.texts.size(), 1u);
    EXPECT_EQ(reply.texts[0], APP_ROOT + "/100/base");
    reply = Exchange(Request(MigrateOp::GET_EXIST_DIRECTORY, APP_ROOT + "/100/base/file/below"));
    ASSERT_EQ(reply.texts.size(), 1u);
    EXPECT_EQ(reply.texts[0], APP_ROOT + "/100/base");
    reply = Exchange(Request(MigrateOp::GET_EXIST_DIRECTORY, APP_ROOT + "/nothing"));
    ASSERT_EQ(reply.texts.size(), 1u);
    EXPECT_EQ(reply.texts[0], APP_ROOT);
}

TEST_F(OperationsTest, PathSizeCountsRegularFileBytesOfTheTree) {
    WriteFile(WORK_ROOT + "/s/a", std::string(1000, 'a'));
    WriteFile(WORK_ROOT + "/s/d/b", std::string(234, 'b'));
    symlink("/etc/passwd", (WORK_ROOT + "/s/link").c_str());
    EXPECT_EQ(Exchange(Request(MigrateOp::GET_PATH_SIZE, WORK_ROOT + "/s")).result, 1234);
    EXPECT_EQ(Exchange(Request(MigrateOp::GET_PATH_SIZE, WORK_ROOT + "/s/a")).result, 1000);
    EXPECT_EQ(Exchange(Request(MigrateOp::GET_PATH_SIZE, WORK_ROOT + "/none")).errCode, ENOENT);
}

TEST_F(OperationsTest, UnknownOperationIsRefused) {
    RawRequest request = Request(MigrateOp::IS_FILE_EXIST, WORK_ROOT);
    request.type = 99;
    RawReply reply = Exchange(request);
    EXPECT_EQ(reply.result, -1);
    EXPECT_EQ(reply.errCode, EOPNOTSUPP);
    EXPECT_EQ(LastJournalEntry().outcome, Zarvo::Host::JournalOutcome::REFUSED);
}

}  // namespace
