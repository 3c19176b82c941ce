#include "file_migrate_manager.h"

#include <gtest/gtest.h>

#include "captured_log.h"
#include "pause_recorder.h"
#include "scripted_peer.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;

namespace {

constexpr size_t SRC = 4;
constexpr size_t DST = 1028;
constexpr size_t UID = 2052;
constexpr size_t GID = 2084;
constexpr size_t PERM = 2116;

class FileMigrateManagerTest : public testing::Test {
protected:
    void SetUp() override { ResetCaptures(); }

    static std::vector<int32_t> Types(const ScriptedPeer &peer) {
        std::vector<int32_t> types;
        for (const std::string &request : peer.Requests()) {
            types.push_back(RequestType(request));
        }
        return types;
    }

    PauseRecorder pauses_;
};

TEST_F(FileMigrateManagerTest, SingleOperationsFillOnlyTheirFields) {
    struct Case {
        std::function<int32_t(FileMigrateManager &)> call;
        int32_t type;
        std::string src, dst, uid, gid, perm;
        int32_t recurseOpt;
        std::string debugLine;
    };
    FileParam prepare{};
    prepare.dstFile = "/d/prep";
    prepare.uid = "u";
    prepare.gid = "g";
    prepare.perm = "0700";
    prepare.recurseOpt = RECURSE_ALL;
    prepare.reserved = "kept";
    const std::vector<Case> cases = {
        {[](auto &m) { return m.IsFileExist("/p"); }, 0, "/p", "", "", "", "", 0, "IsFileExist: /p"},
        {[](auto &m) { return m.IsDir("/p"); }, 1, "/p", "", "", "", "", 0, "IsDir: /p"},
        {[&prepare](auto &m) { return m.MkDir(prepare); }, 3, "/d/prep", "/d/prep", "u", "g", "0700", 2,
         "PrepareDir : /d/prep"},
        {[](auto &m) { return m.MoveSubFile("/s", "/d"); }, 4, "/s", "/d", "", "", "", 0,
         "MoveSubFile src: /s, dst: /d"},
        {[](auto &m) { return m.MoveAllFile("/s", "/d"); }, 5, "/s", "/d", "", "", "", 0,
         "MoveAllFile src: /s, dst: /d"},
        {[](auto &m) { return m.CopySubFile("/s", "/d"); }, 6, "/s", "/d", "", "", "", 0,
         "CopySubFile src: /s, dst: /d"},
        {[](auto &m) { return m.CopyAllFile("/s", "/d"); }, 7, "/s", "/d", "", "", "", 0,
         "CopyAllFile src: /s, dst: /d"},
        {[](auto &m) { return m.RemoveFile("/p"); }, 8, "/p", "", "", "", "", 0, "RemoveFile : /p"},
        {[](auto &m) { return m.RestoreCon("/p", RECURSE_ALL); }, 9, "/p", "", "", "", "", 2,
         "RestoreCon src: /p, recurseOpt: 2"},
        {[](auto &m) { return m.RestoreconFromParent("/p"); }, 10, "/p", "", "", "", "", 0,
         "RestoreconFromParent src: /p, "},
        {[](auto &m) { return m.TryRemove("/p"); }, 11, "/p", "", "", "", "", 0, "TryRemove : /p"},
        {[](auto &m) { return m.MkDir("/p", RECURSE_ALL); }, 12, "/p", "", "", "", "", 2, "MkDir : /p"},
        {[](auto &m) { return m.Chown("/p", "1", "2", RECURSE_NONE); }, 13, "/p", "", "1", "2", "", 0,
         "chown : /p"},
        {[](auto &m) { return m.Chmod("/p", "0644", RECURSE_ALL); }, 14, "/p", "", "", "", "0644", 2,
         "chmod : /p"},
        {[](auto &m) { return m.GetPathSize("/p"); }, 16, "/p", "", "", "", "", 0, "GetPathSize : /p"},
    };
    ScriptedPeer peer({AnswerEach(ReplyHeader(3, 0, 0))});
    FileMigrateManager manager;
    for (const Case &c : cases) {
        ResetCaptures();
        EXPECT_EQ(c.call(manager), 3) << c.debugLine;
        std::vector<LogLine> lines = PluginLogLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines[0], (LogLine{LOG_DEBUG, c.debugLine}));
    }
    std::vector<std::string> requests = peer.Requests();
    ASSERT_EQ(requests.size(), cases.size());
    for (size_t i = 0; i < cases.size(); ++i) {
        const Case &c = cases[i];
        EXPECT_EQ(RequestType(requests[i]), c.type);
        EXPECT_EQ(RequestText(requests[i], SRC), c.src) << c.type;
        EXPECT_EQ(RequestText(requests[i], DST), c.dst) << c.type;
        EXPECT_EQ(RequestText(requests[i], UID), c.uid) << c.type;
        EXPECT_EQ(RequestText(requests[i], GID), c.gid) << c.type;
        EXPECT_EQ(RequestText(requests[i], PERM), c.perm) << c.type;
        EXPECT_EQ(RequestRecurseOpt(requests[i]), c.recurseOpt) << c.type;
    }
    EXPECT_EQ(RequestText(requests[2], 2136), "kept") << "MkDir(param) sends the whole record";
    EXPECT_EQ(peer.Connections(), 1);
}

TEST_F(FileMigrateManagerTest, InvalidRequestIsStoppedBeforeConnecting) {
    FileMigrateManager manager;
    EXPECT_EQ(manager.IsFileExist(""), MIGRATE_ERR_INVALID_REQUEST);
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{{LOG_DEBUG, "IsFileExist: "},
                                                      {LOG_ERROR, "invalid srcFile!"},
                                                      {LOG_ERROR, "AssembleMsg failed!"}}));
    EXPECT_EQ(manager.MkDir(FileParam{}), MIGRATE_ERR_INVALID_REQUEST);
    EXPECT_EQ(CountPluginLines("Client"), 0u);
    EXPECT_TRUE(PauseRecorder::Pauses().empty());
}

TEST_F(FileMigrateManagerTest, ConnectionFailureIsNotRetriedByTheManager) {
    FileMigrateManager manager;
    EXPECT_EQ(manager.IsDir("/p"), MIGRATE_ERR_CONNECT);
    EXPECT_EQ(PauseRecorder::Pauses(), (std::vector<uint32_t>{100, 100}));
    EXPECT_EQ(CountPluginLines("Communication broken"), 0u);
}

TEST_F(FileMigrateManagerTest, ServiceThatClosesAfterReadingGetsFourAttemptsOnFreshConnections) {
    ScriptedPeer peer({CloseAfterRequest()});
    FileMigrateManager manager;
    EXPECT_EQ(manager.CopyAllFile("/s", "/dst"), MIGRATE_ERR_READ);
    EXPECT_EQ(PauseRecorder::Pauses(), (std::vector<uint32_t>{500, 500, 500, 500}));
    std::vector<LogLine> broken;
    for (const LogLine &line : PluginLogLines()) {
        if (line.text.find("Communication broken") != std::string::npos) {
            broken.push_back(line);
        }
    }
    EXPECT_EQ(broken,
              std::vector<LogLine>(
                  4, {LOG_ERROR, "Communication broken recreate fd, initiate request, filepath : /dst"}));
    EXPECT_EQ(peer.Connections(), 4);
    std::vector<std::string> requests = peer.Requests();
    ASSERT_EQ(requests.size(), 4u);
    for (const std::string &request : requests) {
        EXPECT_EQ(request, requests[0]) << "the same request is sent every time";
    }
}

TEST_F(FileMigrateManagerTest, BrokenExchangeFollowedBySuccessReturnsTheSecondResult) {
    ScriptedPeer peer({CloseAfterRequest(), AnswerEach(ReplyHeader(0, 0, 0))});
    FileMigrateManager manager;
    EXPECT_EQ(manager.RemoveFile("/p"), 0);
    EXPECT_EQ(PauseRecorder::Pauses(), (std::vector<uint32_t>{500}));
    EXPECT_EQ(peer.Connections(), 2);
    EXPECT_EQ(CountPluginLines("Communication broken recreate fd, initiate request, filepath : "), 1u);
}

TEST_F(FileMigrateManagerTest, ComposedCopySendsOwnerAndModeOnlyWhenGiven) {
    struct Case {
        std::string uid, gid, perm;
        std::vector<int32_t> types;
    };
    for (const Case &c : std::vector<Case>{{"100", "200", "0700", {7, 13, 14}},
                                           {"100", "", "0700", {7, 14}},
                                           {"", "", "", {7}},
                                           {"100", "200", "", {7, 13}}}) {
        ScriptedPeer peer({AnswerEach(ReplyHeader(0, 0, 0))});
        FileMigrateManager manager;
        FileParam param{};
        param.dstFile = "/dst/file";
        param.uid = c.uid;
        param.gid = c.gid;
        param.perm = c.perm;
        param.recurseOpt = RECURSE_NONE;
        EXPECT_EQ(manager.CopyAllFile("/src/file", param), 0);
        EXPECT_EQ(Types(peer), c.types);
        std::vector<std::string> requests = peer.Requests();
        EXPECT_EQ(RequestText(requests[0], UID), "") << "only the destination travels with the copy";
        for (size_t i = 1; i < requests.size(); ++i) {
            EXPECT_EQ(RequestText(requests[i], SRC), "/dst/file");
            EXPECT_EQ(RequestRecurseOpt(requests[i]), 2);
        }
        EXPECT_EQ(peer.Connections(), 1);
    }
}

TEST_F(FileMigrateManagerTest, ComposedVariantsUseTheirOwnType) {
    ScriptedPeer peer({AnswerEach(ReplyHeader(0, 0, 0))});
    FileMigrateManager manager;
    FileParam param{};
    param.dstFile = "/d";
    EXPECT_EQ(manager.MoveSubFile("/s", param), 0);
    EXPECT_EQ(manager.MoveAllFile("/s", param), 0);
    EXPECT_EQ(manager.CopySubFile("/s", param), 0);
    EXPECT_EQ(Types(peer), (std::vector<int32_t>{4, 5, 6}));
    EXPECT_EQ(CountPluginLines("Compose MoveSubFile src: /s, dst: /d"), 1u);
    EXPECT_EQ(CountPluginLines("Compose CopySubFile src: /s, dst: /d"), 1u);
}

TEST_F(FileMigrateManagerTest, ComposedCopyStopsAtTheFirstFailure) {
    ScriptedPeer copyFails({AnswerEach(ReplyHeader(5, 0, 0))});
    FileParam param{};
    param.dstFile = "/dst";
    param.uid = "1";
    param.gid = "1";
    param.perm = "0700";
    {
        FileMigrateManager manager;
        EXPECT_EQ(manager.CopyAllFile("/src", param), 5);
    }
    EXPECT_EQ(Types(copyFails), (std::vector<int32_t>{7}));
    EXPECT_EQ(PluginLogLines().back(), (LogLine{LOG_ERROR, "MigrateFile src: /src, dest: /dst result 5"}));
}

TEST_F(FileMigrateManagerTest, ComposedCopyStopsWhenTheOwnerChangeFails) {
    ScriptedPeer peer({[](ScriptedPeer &p, int fd) {
        p.ReadRequest(fd);
        ScriptedPeer::Send(fd, ReplyHeader(0, 0, 0));
        p.ReadRequest(fd);
        ScriptedPeer::Send(fd, ReplyHeader(-1, 1, 0));
        while (p.ReadRequest(fd)) {
            ScriptedPeer::Send(fd, ReplyHeader(0, 0, 0));
        }
    }});
    FileMigrateManager manager;
    FileParam param{};
    param.dstFile = "/dst";
    param.uid = "1";
    param.gid = "1";
    param.perm = "0700";
    EXPECT_EQ(manager.CopyAllFile("/src", param), -1);
    EXPECT_EQ(Types(peer), (std::vector<int32_t>{7, 13}));
    EXPECT_EQ(PluginLogLines().back(), (LogLine{LOG_ERROR, "Chown path: /dst result -1"}));
}

TEST_F(FileMigrateManagerTest, MigrateFileByFileParamSupportsOnlyCopyAndMove) {
    FileMigrateManager manager;
    FileParam param{};
    param.dstFile = "/d";
    EXPECT_EQ(manager.MigrateFileByFileParam(MK_DIR, "/s", param), MIGRATE_ERR_INVALID_REQUEST);
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{{LOG_ERROR, "Not Support cdmType"}}));
}

TEST_F(FileMigrateManagerTest, ExistDirectoryTakesTheFirstEntryOrLeavesTheTextAlone) {
    ScriptedPeer peer({[](ScriptedPeer &p, int fd) {
                           p.ReadRequest(fd);
                           ScriptedPeer::Send(fd, ReplyHeader(4, 0, 0));
                       },
                       [](ScriptedPeer &p, int fd) {
                           p.ReadRequest(fd);
                           ScriptedPeer::Send(fd, ReplyHeader(0, 0, 2) + Package(2, 0, "/first:1,/second") +
                                                      Package(2, 1, "/third"));
                       }});
    FileMigrateManager manager;
    std::string dir = "untouched";
    EXPECT_EQ(manager.GetExistDirectory("/a/b", dir), 4);
    EXPECT_EQ(dir, "untouched");
    EXPECT_EQ(manager.GetExistDirectory("/a/b", dir), 0);
    EXPECT_EQ(dir, "/first");
    EXPECT_EQ(Types(peer), (std::vector<int32_t>{15, 15}));
    EXPECT_EQ(peer.Connections(), 2) << "each list request has a connection of its own";
}

TEST_F(FileMigrateManagerTest, PathListAppendsAndAnIncompleteRunAddsNothing) {
    ScriptedPeer peer({[](ScriptedPeer &p, int fd) {
                           p.ReadRequest(fd);
                           ScriptedPeer::Send(fd, ReplyHeader(0, 0, 1) + Package(1, 0, "/n:1"));
                       },
                       [](ScriptedPeer &p, int fd) {
                           p.ReadRequest(fd);
                           ScriptedPeer::Send(fd, ReplyHeader(0, 0, 2) + Package(2, 0, "/lost"));
                       }});
    FileMigrateManager manager;
    std::vector<FilePath> list = {{"/old", 0}};
    EXPECT_EQ(manager.GetPathList("/p", list), 0);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].path, "/n");
    EXPECT_EQ(list[1].kind, 2);
    EXPECT_EQ(manager.GetPathList("/p", list), MIGRATE_ERR_PACKAGES);
    EXPECT_EQ(list.size(), 2u);
    EXPECT_TRUE(PauseRecorder::Pauses().empty()) << "list requests are not re-sent";
}

}  // namespace
