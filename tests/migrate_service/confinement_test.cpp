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
    RawReply Chown(const std::string &path, const std::string &uid, int32_t recurseOpt = 0) {
        RawRequest request = Request(MigrateOp::CHOWN, path);
        request.uid = uid;
        request.gid = uid;
        request.recurseOpt = recurseOpt;
        return Exchange(request);
    }

    RawReply Chmod(const std::string &path, const std::string &perm, int32_t recurseOpt = 0) {
        RawRequest request = Request(MigrateOp::CHMOD, path);
        request.perm = perm;
        request.recurseOpt = recurseOpt;
        return Exchange(request);
    }
};

TEST_F(ConfinementTest, PathsOutsideTheRootsOrWithDotDotAreRefused) {
    std::filesystem::create_directories(WORK_ROOT + "/a");
    struct Case {
        std::string path;
        int err;
    };
    for (const Case &c : std::vector<Case>{{"/etc/passwd", EACCES},
                                           {WORK_ROOT + "/a/../a", EACCES},
                                           {WORK_ROOT + "/../../../../../etc", EACCES},
                                           {"/data/app/el2x/file", EACCES},
                                           {"/data/app", EACCES},
                                           {"data/app/el2/x", EINVAL}}) {
        RawReply reply = Exchange(Request(MigrateOp::IS_FILE_EXIST, c.path));
        EXPECT_EQ(reply.result, -1) << c.path;
        EXPECT_EQ(reply.errCode, c.err) << c.path;
        Zarvo::Host::JournalEntry entry = LastJournalEntry();
        EXPECT_EQ(entry.outcome, JournalOutcome::REFUSED) << c.path;
        EXPECT_EQ(entry.request.src, c.path);
        EXPECT_FALSE(entry.note.empty());
    }
    RawReply copyOut = Exchange(Request(MigrateOp::COPY_ALL_FILE, "/etc/hostname", WORK_ROOT + "/stolen"));
    EXPECT_EQ(copyOut.errCode, EACCES);
    EXPECT_FALSE(Exists(WORK_ROOT + "/stolen"));
}

// A link inside an allowed directory that points at /etc. Every request through it is checked
// with values that would leave /etc as it is even if the guard failed, and the answer tells
// whether the link was followed (ELOOP) or not.
TEST_F(ConfinementTest, LinkToEtcInsideARootDoesNotLeadThere) {
    const std::string link = WORK_ROOT + "/etc";
    std::filesystem::create_directories(WORK_ROOT);
    ASSERT_EQ(symlink("/etc", link.c_str()), 0);
    struct stat passwd = Lstat("/etc/passwd");
    struct stat etc = Lstat("/etc");
    char mode[8];
    snprintf(mode, sizeof(mode), "%04o", passwd.st_mode & 0777);

    RawReply copy = Exchange(Request(MigrateOp::COPY_ALL_FILE, link + "/passwd", APP_ROOT + "/passwd"));
    EXPECT_EQ(copy.errCode, ELOOP);
    EXPECT_FALSE(Exists(APP_ROOT + "/passwd"));
    EXPECT_EQ(Chown(link + "/passwd", std::to_string(passwd.st_uid)).errCode, ELOOP);
    EXPECT_EQ(Chmod(link + "/passwd", mode).errCode, ELOOP);
    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, link + "/no-such-file-here")).errCode, ELOOP);
    EXPECT_EQ(Exchange(Request(MigrateOp::IS_FILE_EXIST, link + "/passwd")).errCode, ELOOP);
    RawReply writeThrough = Exchange(Request(MigrateOp::MK_DIR, link + "/migrate-test-dir"));
    EXPECT_EQ(writeThrough.errCode, ELOOP);
    EXPECT_FALSE(Exists("/etc/migrate-test-dir"));

    // On the link itself: re-owned as a link, never given a mode, copied as a link, removed as one.
    EXPECT_EQ(Chmod(link, "0755").errCode, EOPNOTSUPP);
    EXPECT_EQ(Chown(link, "4321").result, 0);
    EXPECT_EQ(Lstat(link).st_uid, 4321u);
    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, link, APP_ROOT + "/copied")).result, 0);
    EXPECT_TRUE(S_ISLNK(Lstat(APP_ROOT + "/copied").st_mode));
    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, link)).result, 0);
    EXPECT_FALSE(Exists(link));

    struct stat etcAfter = Lstat("/etc");
    EXPECT_EQ(etcAfter.st_uid, etc.st_uid);
    EXPECT_EQ(etcAfter.st_mode, etc.st_mode);
    EXPECT_TRUE(Exists("/etc/passwd"));
}

// The same escape towards a scratch tree outside the roots, where a failure would be visible.
TEST_F(ConfinementTest, RecursiveOperationsNeverCrossALinkOutOfTheRoot) {
    WriteFile("/data/outside/secret", "secret", 0600);
    WriteFile(WORK_ROOT + "/tree/own", "own", 0600);
    ASSERT_EQ(symlink("/data/outside", (WORK_ROOT + "/tree/out").c_str()), 0);

    EXPECT_EQ(Chown(WORK_ROOT + "/tree", "777", 2).result, 0);
    EXPECT_EQ(Chmod(WORK_ROOT + "/tree", "0777", 2).result, 0);
    EXPECT_EQ(Lstat(WORK_ROOT + "/tree/own").st_uid, 777u);
    EXPECT_EQ(Lstat("/data/outside/secret").st_uid, 0u);
    EXPECT_EQ(Lstat("/data/outside/secret").st_mode & 0777, 0600u);
    EXPECT_EQ(Lstat("/data/outside").st_uid, 0u);

    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/tree", APP_ROOT + "/tree")).result, 0);
    EXPECT_TRUE(S_ISLNK(Lstat(APP_ROOT + "/tree/out").st_mode));
    EXPECT_EQ(Exchange(Request(MigrateOp::GET_PATH_SIZE, WORK_ROOT + "/tree")).result, 3);

    RawReply through = Exchange(Request(MigrateOp::REMOVE_FILE, WORK_ROOT + "/tree/out/secret"));
    EXPECT_EQ(through.errCode, ELOOP);
    RawReply into =
        Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/tree/own", WORK_ROOT + "/tree/out/x"));
    EXPECT_EQ(into.errCode, ELOOP);
    EXPECT_FALSE(Exists("/data/outside/x"));

    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, WORK_ROOT + "/tree")).result, 0);
    EXPECT_EQ(ReadFile("/data/outside/secret"), "secret");
}

TEST_F(ConfinementTest, AnExistingLinkAtTheCopyDestinationIsReplacedNotWrittenThrough) {
    WriteFile("/data/outside/target", "keep");
    WriteFile(WORK_ROOT + "/src", "new");
    ASSERT_EQ(symlink("/data/outside/target", (WORK_ROOT + "/dst").c_str()), 0);
    EXPECT_EQ(Exchange(Request(MigrateOp::COPY_ALL_FILE, WORK_ROOT + "/src", WORK_ROOT + "/dst")).result, 0);
    EXPECT_EQ(ReadFile("/data/outside/target"), "keep");
    EXPECT_TRUE(S_ISREG(Lstat(WORK_ROOT + "/dst").st_mode));
    EXPECT_EQ(ReadFile(WORK_ROOT + "/dst"), "new");
}

TEST_F(ConfinementTest, TheRootsThemselvesCannotBeRemovedReownedOrReplaced) {
    EXPECT_EQ(Exchange(Request(MigrateOp::REMOVE_FILE, WORK_ROOT)).errCode, EACCES);
    EXPECT_EQ(Chmod(APP_ROOT, "0777").errCode, EACCES);
    EXPECT_EQ(Chown(APP_ROOT + "/", "1").errCode, EACCES);
    EXPECT_EQ(Exchange(Request(MigrateOp::MOVE_ALL_FILE, APP_ROOT, WORK_ROOT + "/x")).errCode, EACCES);
    EXPECT_TRUE(Exists(WORK_ROOT));
    EXPECT_EQ(Lstat(APP_ROOT).st_mode & 0777, 0755u);
}

TEST_F(ConfinementTest, EachUnterminatedFieldIsRefusedAndTheConnectionGoesOn) {
    struct Field {
        const char *name;
        size_t offset;
        size_t width;
    };
    RawConnection connection;
    ASSERT_TRUE(connection.Connected());
    for (const Field &field : std::vector<Field>{{"srcFilePath", 4, 1024},
                                                 {"dstFilePath", 1028, 1024},
                                                 {"uid", 2052, 32},
                                                 {"gid", 2084, 32},
                                                 {"perm", 2116, 16},
                                                 {"reserved", 2136, 252}}) {
        RawRequest request = Request(MigrateOp::MK_DIR, WORK_ROOT + "/made");
        std::string bytes = request.Bytes();
        bytes.replace(field.offset, field.width, std::string(field.width, 'A'));
        if (field.offset != 4) {
            bytes.replace(4, request.src.size(), request.src);
        }
        ASSERT_TRUE(connection.SendBytes(bytes));
        RawReply reply = connection.Receive();
        EXPECT_TRUE(reply.complete);
        EXPECT_EQ(reply.result, -1) << field.name;
        EXPECT_EQ(reply.errCode, EINVAL) << field.name;
        EXPECT_EQ(LastJournalEntry().outcome, JournalOutcome::REFUSED);
        EXPECT_NE(LastJournalEntry().note.find(field.name), std::string::npos) << LastJournalEntry().note;
        EXPECT_FALSE(Exists(WORK_ROOT + "/made"));
    }
    EXPECT_EQ(connection.Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT)).result, 0);
}

// Arbitrary requests of the full length: each gets an answer, and the service keeps serving.
TEST_F(ConfinementTest, ArbitraryRequestsAreAnsweredWithoutHarm) {
    std::mt19937 random(20261123);
    const std::string alphabet = "ab./\0,:";
    RawConnection connection;
    for (int i = 0; i < 3000; ++i) {
        std::string bytes(2388, '\0');
        for (char &c : bytes) {
            c = static_cast<char>(random());
        }
        if (i % 2 == 0) {
            // Mostly well-formed, so the operations themselves run on odd paths below the root.
            RawRequest request;
            request.type = static_cast<int32_t>(random() % 20) - 1;
            request.recurseOpt = static_cast<int32_t>(random() % 4);
            request.src = WORK_ROOT + "/";
            request.dst = WORK_ROOT + "/";
            for (int k = 0; k < 12; ++k) {
                request.src += alphabet[random() % alphabet.size()];
                request.dst += alphabet[random() % alphabet.size()];
            }
            request.perm = "0700";
            request.uid = std::to_string(random() % 3);
            bytes = request.Bytes();
        }
        ASSERT_TRUE(connection.SendBytes(bytes)) << i;
        RawReply reply = connection.Receive();
        ASSERT_TRUE(reply.complete) << i;
    }
    EXPECT_EQ(Exchange(Request(MigrateOp::IS_DIR, WORK_ROOT)).result, 0);
    EXPECT_EQ(std::filesystem::is_empty("/data/outside"), true);
}

}  // namespace
