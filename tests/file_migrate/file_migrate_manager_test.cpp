#include "file_migrate_manager.h"

#include <gtest/gtest.h>

#include "captured_log.h"
#include "migrate_peers.h"
#include "pause_recorder.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;

namespace {

class FileMigrateManagerTest : public testing::Test {
protected:
    void SetUp() override { ResetCaptures(); }

    // "type|recurseOpt|src|dst|uid|gid|perm|reserved" of every request the peer read.
    static std::vector<std::string> Summaries(const ScriptedPeer &peer) {
        std::vector<std::string> summaries;
        for (const std::string &request : peer.Requests()) {
            summaries.push_back(RequestSummary(request));
        }
        return summaries;
    }

    PauseRecorder pauses_;
};

TEST_F(FileMigrateManagerTest, EachOperationSendsItsTypeAndOnlyItsFields) {
    FileParam full{};
    full.dstFile = "/d";
    full.uid = "u";
    full.gid = "g";
    full.perm = "0700";
    full.recurseOpt = RECURSE_ALL;
    full.reserved = "kept";
    const std::vector<std::tuple<std::function<int32_t(FileMigrateManager &)>, std::string, std::string>>
        cases = {
            {[](auto &m) { return m.IsFileExist("/p"); }, "0|0|/p|||||", "IsFileExist: /p"},
            {[](auto &m) { return m.IsDir("/p"); }, "1|0|/p|||||", "IsDir: /p"},
            {[&full](auto &m) { return m.MkDir(full); }, "3|2|/d|/d|u|g|0700|kept", "PrepareDir : /d"},
            {[](auto &m) { return m.MoveSubFile("/s", "/d"); }, "4|0|/s|/d||||",
             "MoveSubFile src: /s, dst: /d"},
            {[](auto &m) { return m.MoveAllFile("/s", "/d"); }, "5|0|/s|/d||||",
             "MoveAllFile src: /s, dst: /d"},
            {[](auto &m) { return m.CopySubFile("/s", "/d"); }, "6|0|/s|/d||||",
             "CopySubFile src: /s, dst: /d"},
            {[](auto &m) { return m.CopyAllFile("/s", "/d"); }, "7|0|/s|/d||||",
             "CopyAllFile src: /s, dst: /d"},
            {[](auto &m) { return m.RemoveFile("/p"); }, "8|0|/p|||||", "RemoveFile : /p"},
            {[](auto &m) { return m.RestoreCon("/p", RECURSE_ALL); }, "9|2|/p|||||",
             "RestoreCon src: /p, recurseOpt: 2"},
            {[](auto &m) { return m.RestoreconFromParent("/p"); }, "10|0|/p|||||",
             "RestoreconFromParent src: /p, "},
            {[](auto &m) { return m.TryRemove("/p"); }, "11|0|/p|||||", "TryRemove : /p"},
            {[](auto &m) { return m.MkDir("/p", RECURSE_ALL); }, "12|2|/p|||||", "MkDir : /p"},
            {[](auto &m) { return m.Chown("/p", "1", "2", RECURSE_NONE); }, "13|0|/p||1|2||", "chown : /p"},
            {[](auto &m) { return m.Chmod("/p", "0644", RECURSE_ALL); }, "14|2|/p||||0644|", "chmod : /p"},
            {[](auto &m) { return m.GetPathSize("/p"); }, "16|0|/p|||||", "GetPathSize : /p"},
            // Composed moves and copies without owner or mode send the plain request only.
            {[](auto &m) {
                 return m.MoveSubFile("/s", FileParam{RECURSE_NONE, "", "", "", "/d", ""});
             },
             "4|0|/s|/d||||", "Compose MoveSubFile src: /s, dst: /d"},
            {[](auto &m) {
                 return m.MoveAllFile("/s", FileParam{RECURSE_NONE, "", "", "", "/d", ""});
             },
             "5|0|/s|/d||||", "Compose MoveAllFile src: /s, dst: /d"},
            {[](auto &m) {
                 return m.CopySubFile("/s", FileParam{RECURSE_NONE, "", "", "", "/d", ""});
             },
             "6|0|/s|/d||||", "Compose CopySubFile src: /s, dst: /d"},
        };
    ScriptedPeer peer({Answers({ReplyHeader(3, 0, 0)})});
    FileMigrateManager manager;
    std::vector<std::string> expected;
    for (const auto &[call, request, debugLine] : cases) {
        ResetCaptures();
        expected.push_back(request);
        EXPECT_EQ(call(manager), 3) << debugLine;
        std::vector<LogLine> lines = PluginLogLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines[0], (LogLine{LOG_DEBUG, debugLine}));
    }
    EXPECT_EQ(Summaries(peer), expected);
    EXPECT_EQ(peer.Connections(), 1);
}

TEST_F(FileMigrateManagerTest, InvalidRequestsAndConnectionFailuresAreNotResent) {
    FileMigrateManager manager;
    EXPECT_EQ(manager.IsFileExist(""), MIGRATE_ERR_INVALID_REQUEST);
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{{LOG_DEBUG, "IsFileExist: "},
                                                      {LOG_ERROR, "invalid srcFile!"},
                                                      {LOG_ERROR, "AssembleMsg failed!"}}));
    EXPECT_TRUE(PauseRecorder::Pauses().empty());
    EXPECT_EQ(manager.MigrateFileByFileParam(MK_DIR, "/s", FileParam{}), MIGRATE_ERR_INVALID_REQUEST);
    EXPECT_EQ(PluginLogLines().back(), (LogLine{LOG_ERROR, "Not Support cdmType"}));
    EXPECT_EQ(manager.IsDir("/p"), MIGRATE_ERR_CONNECT);
    EXPECT_EQ(PauseRecorder::Pauses(), (std::vector<uint32_t>{100, 100})) << "the client's own retries only";
    EXPECT_EQ(CountPluginLines("Communication broken"), 0u);
}

TEST_F(FileMigrateManagerTest, BrokenExchangesAreResentOnFreshConnectionsFourTimesAtMost) {
    struct Case {
        std::vector<ScriptedPeer::Script> scripts;
        int32_t result;
        size_t broken;
    };
    for (const Case &c : std::vector<Case>{{{CloseAfterRequest()}, MIGRATE_ERR_READ, 4},
                                           {{CloseAfterRequest(), Answers({ReplyHeader(0, 0, 0)})}, 0, 1}}) {
        ResetCaptures();
        PauseRecorder::Pauses().clear();
        ScriptedPeer peer(c.scripts);
        EXPECT_EQ(FileMigrateManager().CopyAllFile("/s", "/dst"), c.result);
        EXPECT_EQ(PauseRecorder::Pauses(), std::vector<uint32_t>(c.broken, 500));
        EXPECT_EQ(CountPluginLines("Communication broken recreate fd, initiate request, filepath : /dst"),
                  c.broken);
        size_t attempts = c.broken + (c.result == 0 ? 1 : 0);
        EXPECT_EQ(peer.Connections(), static_cast<int>(attempts));
        EXPECT_EQ(Summaries(peer), std::vector<std::string>(attempts, "7|0|/s|/dst||||"))
            << "the same request each time";
    }
}

TEST_F(FileMigrateManagerTest, ComposedCopySendsOwnerAndModeWhenGivenAndStopsAtTheFirstFailure) {
    struct Case {
        std::string uid, gid, perm;
        std::vector<std::string> replies;
        int32_t result;
        std::vector<int32_t> types;
        std::string lastLine;
    };
    const std::string ok = ReplyHeader(0, 0, 0);
    for (const Case &c : std::vector<Case>{
             {"100", "200", "0700", {ok}, 0, {7, 13, 14}, ""},
             {"100", "", "0700", {ok}, 0, {7, 14}, ""},
             {"", "", "", {ok}, 0, {7}, ""},
             {"100", "200", "", {ok}, 0, {7, 13}, ""},
             {"1", "1", "0700", {ReplyHeader(5, 0, 0)}, 5, {7}, "MigrateFile src: /src, dest: /dst result 5"},
             {"1", "1", "0700", {ok, ReplyHeader(-1, 1, 0), ok}, -1, {7, 13}, "Chown path: /dst result -1"},
         }) {
        ResetCaptures();
        ScriptedPeer peer({Answers(c.replies)});
        FileParam param{RECURSE_NONE, c.uid, c.gid, c.perm, "/dst", ""};
        EXPECT_EQ(FileMigrateManager().CopyAllFile("/src", param), c.result);
        std::vector<std::string> summaries = Summaries(peer);
        ASSERT_EQ(summaries.size(), c.types.size());
        EXPECT_EQ(summaries[0], "7|0|/src|/dst||||") << "only the destination travels with the copy";
        for (size_t i = 1; i < summaries.size(); ++i) {
            EXPECT_EQ(summaries[i], c.types[i] == CHOWN ? "13|2|/dst||" + c.uid + "|" + c.gid + "||"
                                                        : "14|2|/dst||||" + c.perm + "|");
        }
        if (!c.lastLine.empty()) {
            EXPECT_EQ(PluginLogLines().back(), (LogLine{LOG_ERROR, c.lastLine}));
        }
    }
}

TEST_F(FileMigrateManagerTest, ListRequestsUseAConnectionEachAndKeepOnlyCompleteRuns) {
    ScriptedPeer peer(
        {Answers({ReplyHeader(4, 0, 0)}),
         Answers({ReplyHeader(0, 0, 2) + Package(2, 0, "/first:1,/second") + Package(2, 1, "/third")}),
         Answers({ReplyHeader(0, 0, 1) + Package(1, 0, "/n:1")}),
         [](ScriptedPeer &p, int fd) {  // then closes: the second package never comes
             p.ReadRequest(fd);
             Send(fd, ReplyHeader(0, 0, 2) + Package(2, 0, "/lost"));
         }});
    FileMigrateManager manager;
    std::string dir = "untouched";
    EXPECT_EQ(manager.GetExistDirectory("/a/b", dir), 4);
    EXPECT_EQ(dir, "untouched");
    EXPECT_EQ(manager.GetExistDirectory("/a/b", dir), 0);
    EXPECT_EQ(dir, "/first");
    std::vector<FilePath> list = {{"/old", 0}};
    EXPECT_EQ(manager.GetPathList("/p", list), 0);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].path, "/n");
    EXPECT_EQ(list[1].kind, 2);
    EXPECT_EQ(manager.GetPathList("/p", list), MIGRATE_ERR_PACKAGES);
    EXPECT_EQ(list.size(), 2u);
    EXPECT_EQ(Summaries(peer),
              (std::vector<std::string>{"15|0|/a/b|||||", "15|0|/a/b|||||", "2|0|/p|||||", "2|0|/p|||||"}));
    EXPECT_EQ(peer.Connections(), 4);
    EXPECT_TRUE(PauseRecorder::Pauses().empty()) << "list requests are not re-sent";
}

}  // namespace
