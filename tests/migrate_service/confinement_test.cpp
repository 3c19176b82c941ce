#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <random>

#include "service_fixture.h"

using namespace Zarvo::Testing;
using Zarvo::Host::JournalOutcome;
using Zarvo::Host::MigrateOp;

namespace {

class ConfinementTest : public ServiceFixture {
protected:
    // CHOWN to `value` as both owner and group, or CHMOD to `value`.
    static RawReply Change(MigrateOp op, const std::string &path, const std::string &value,
                           int32_t recurseOpt = 0) {
        auto request = Request(op, path);
        request.uid = request.gid = request.perm = value;
        request.recurseOpt = recurseOpt;
        return Exchange(request);
    }
};

TEST_F(ConfinementTest, PathsOutsideTheRootsWithDotDotOrNamingARootAreRefusedAndJournalled) {
    std::filesystem::create_directories(WORK_ROOT + "/a");
    struct Case {
        MigrateOp op;
        std::string src, dst;
        int err;
    };
    for (const Case &c :
         std::vector<Case>{{MigrateOp::IS_FILE_EXIST, "/etc/passwd", "", EACCES},
                           {MigrateOp::IS_FILE_EXIST, WORK_ROOT + "/a/../a", "", EACCES},
                           {MigrateOp::IS_FILE_EXIST, WORK_ROOT + "/../../../../../etc", "", EACCES},
                           {MigrateOp::IS_FILE_EXIST, "/data/app/el2x/file", "", EACCES},
                           {MigrateOp::IS_FILE_EXIST, "/data/app", "", EACCES},
                           {MigrateOp::IS_FILE_EXIST, "data/app/el2/x", "", EINVAL},
                           {MigrateOp::RESTORE_CON, "/etc/passwd", "", EACCES},
                           {MigrateOp::COPY_ALL_FILE, "/etc/hostname", WORK_ROOT + "/stolen", EACCES},
                           {MigrateOp::REMOVE_FILE, WORK_ROOT, "", EACCES},
                           {MigrateOp::CHMOD, APP_ROOT, "", EACCES},
                           {MigrateOp::CHOWN, APP_ROOT + "/", "", EACCES},
                           {MigrateOp::MOVE_ALL_FILE, APP_ROOT, WORK_ROOT + "/x", EACCES}}) {
        auto request = Request(c.op, c.src, c.dst);
        request.uid = "1";
        request.perm = "0777";
        RawReply reply = Exchange(request);
        EXPECT_EQ(reply.result, -1) << c.src;
        EXPECT_EQ(reply.errCode, c.err) << c.src;
        Zarvo::Host::JournalEntry entry = LastJournalEntry();
        EXPECT_EQ(entry.outcome, JournalOutcome::REFUSED) << c.src;
        EXPECT_EQ(entry.request.src, c.src);
        EXPECT_FALSE(entry.note.empty());
    }
    EXPECT_FALSE(Exists(WORK_ROOT + "/stolen"));
    EXPECT_FALSE(Exists(WORK_ROOT + "/x"));
    EXPECT_EQ(Lstat(APP_ROOT).st_mode & 0777, 0755u);
}

// A link inside an allowed directory that points at a stand-in for the host's /etc, beside the
// roots. Every request through it would visibly change the stand-in if a guard failed; the answer
// tells whether the link was followed (ELOOP) or not.
TEST_F(ConfinementTest, LinkToAHostDirectoryInsideARootDoesNotLeadThere) {
    const std::string host = OUTSIDE + "/etc";
    const std::string link = WORK_ROOT + "/etc";
    WriteFile(host + "/passwd", "root:x:0:0::/root:/bin/sh\n", 0644);
    std::filesystem::create_directories(host + "/conf.d");
    std::filesystem::create_directories(WORK_ROOT);
    ASSERT_EQ(symlink(host.c_str(), link.c_str()), 0);
    const auto hostBefore = TreeState(host);

    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, link + "/passwd", APP_ROOT + "/passwd")).errCode,
              ELOOP);
    EXPECT_FALSE(Exists(APP_ROOT + "/passwd"));
    EXPECT_EQ(Change(MigrateOp::CHOWN, link + "/passwd", "4321").errCode, ELOOP);
    EXPECT_EQ(Change(MigrateOp::CHMOD, link + "/passwd", "0777").errCode, ELOOP);
    EXPECT_EQ(Change(MigrateOp::CHOWN, link + "/conf.d", "4321", 2).errCode, ELOOP);
    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, link + "/passwd")).errCode, ELOOP);
    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, link + "/no-such-file-here")).errCode, ELOOP);
    EXPECT_EQ(Exchange(Request(MigrateOp::IS_FILE_EXIST, link + "/passwd")).errCode, ELOOP);
    EXPECT_EQ(Exchange(Request(MigrateOp::MK_DIR, link + "/migrate-test-dir")).errCode, ELOOP);
    WriteFile(WORK_ROOT + "/own", "own");
    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/own", link + "/copied")).errCode,
              ELOOP);

    // On the link itself: re-owned as a link, never given a mode, copied as a link, removed as one.
    EXPECT_EQ(Change(MigrateOp::CHMOD, link, "0777").errCode, EOPNOTSUPP);
    EXPECT_EQ(Change(MigrateOp::CHOWN, link, "4321").result, 0);
    EXPECT_EQ(Lstat(link).st_uid, 4321u);
    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, link, APP_ROOT + "/copied")).result, 0);
    EXPECT_TRUE(S_ISLNK(Lstat(APP_ROOT + "/copied").st_mode));
    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, link)).result, 0);
    EXPECT_FALSE(Exists(link));

    EXPECT_EQ(TreeState(host), hostBefore);
}

// The same escape for tree operations: a link deep in a tree leads out of the root.
TEST_F(ConfinementTest, TreeOperationsNeverCrossALinkOutOfTheRoot) {
    WriteFile(OUTSIDE + "/secret", "secret", 0600);
    WriteFile(OUTSIDE + "/target", "keep");
    WriteFile(WORK_ROOT + "/tree/own", "own", 0600);
    ASSERT_EQ(symlink(OUTSIDE.c_str(), (WORK_ROOT + "/tree/out").c_str()), 0);
    ASSERT_EQ(symlink((OUTSIDE + "/target").c_str(), (WORK_ROOT + "/dst").c_str()), 0);
    const auto outsideBefore = TreeState(OUTSIDE);

    EXPECT_EQ(Change(MigrateOp::CHOWN, WORK_ROOT + "/tree", "777", 2).result, 0);
    EXPECT_EQ(Change(MigrateOp::CHMOD, WORK_ROOT + "/tree", "0777", 2).result, 0);
    EXPECT_EQ(Lstat(WORK_ROOT + "/tree/own").st_uid, 777u);

    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/tree", APP_ROOT + "/tree")).result, 0);
    EXPECT_TRUE(S_ISLNK(Lstat(APP_ROOT + "/tree/out").st_mode));
    EXPECT_EQ(Exchange(Request(MigrateOp::GET_PATH_SIZE, WORK_ROOT + "/tree")).result, 3);
    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, WORK_ROOT + "/tree/out/secret")).errCode, ELOOP);
    RawReply into =
        Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/tree/own", WORK_ROOT + "/tree/out/x"));
    EXPECT_EQ(into.errCode, ELOOP);

    // A link at a copy's destination is replaced, not written through.
    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/tree/own", WORK_ROOT + "/dst")).result,
              0);
    EXPECT_TRUE(S_ISREG(Lstat(WORK_ROOT + "/dst").st_mode));

    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, WORK_ROOT + "/tree")).result, 0);
    EXPECT_EQ(TreeState(OUTSIDE), outsideBefore);
}

TEST_F(ConfinementTest, EachUnterminatedFieldIsRefusedAndTheConnectionGoesOn) {
    RawConnection connection;
    ASSERT_TRUE(connection.Connected());
    const std::string made = WORK_ROOT + "/made";
    const char *names[] = {"srcFilePath", "dstFilePath", "uid", "gid", "perm", "reserved"};
    for (size_t i = 0; i < std::size(names); ++i) {
        auto request = Request(MigrateOp::MK_DIR, made);
        std::string *fields[] = {&request.src, &request.dst,  &request.uid,
                                 &request.gid, &request.perm, &request.reserved};
        *fields[i] = std::string(1024, 'A');  // fills any field without leaving room for a NUL
        RawReply reply = connection.Exchange(request);
        EXPECT_TRUE(reply.complete);
        EXPECT_EQ(reply.result, -1) << names[i];
        EXPECT_EQ(reply.errCode, EINVAL) << names[i];
        EXPECT_EQ(LastJournalEntry().outcome, JournalOutcome::REFUSED);
        EXPECT_NE(LastJournalEntry().note.find(names[i]), std::string::npos) << LastJournalEntry().note;
        EXPECT_FALSE(Exists(made));
    }
    EXPECT_EQ(connection.Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT)).result, 0);
}

// Arbitrary requests of the full length: each gets an answer, and the service keeps serving.
TEST_F(ConfinementTest, ArbitraryRequestsAreAnsweredWithoutHarm) {
    std::mt19937 random(20261123);
    const std::string alphabet = "ab./\0,:";
    RawConnection connection;
    for (int i = 0; i < 3000; ++i) {
        std::string bytes(Zarvo::Host::REQUEST_LENGTH, '\0');
        for (char &c : bytes) {
            c = static_cast<char>(random());
        }
        if (i % 2 == 0) {
            // Mostly well-formed, so the operations themselves run on odd paths below the root.
            auto request = Request(static_cast<MigrateOp>(static_cast<int32_t>(random() % 20) - 1),
                                   WORK_ROOT + "/", WORK_ROOT + "/");
            request.recurseOpt = static_cast<int32_t>(random() % 4);
            for (int k = 0; k < 12; ++k) {
                request.src += alphabet[random() % alphabet.size()];
                request.dst += alphabet[random() % alphabet.size()];
            }
            request.perm = "0700";
            request.uid = std::to_string(random() % 3);
            bytes = RequestBytes(request);
        }
        ASSERT_TRUE(connection.SendBytes(bytes)) << i;
        ASSERT_TRUE(connection.Receive().complete) << i;
    }
    EXPECT_EQ(Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT)).result, 0);
    EXPECT_TRUE(std::filesystem::is_empty(OUTSIDE));
}

}  // namespace
