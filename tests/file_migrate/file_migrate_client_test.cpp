#include "file_migrate_client.h"

#include <gtest/gtest.h>

#include "captured_log.h"
#include "migrate_peers.h"
#include "pause_recorder.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;

namespace {

// "path:kind" of every entry, space separated.
std::string Entries(const std::vector<FilePath> &list) {
    std::string text;
    for (const FilePath &entry : list) {
        text += (text.empty() ? "" : " ") + entry.path + ":" + std::to_string(entry.kind);
    }
    return text;
}

class FileMigrateClientTest : public testing::Test {
protected:
    void SetUp() override { ResetCaptures(); }
    int32_t Send(FileMigrateClient &client, std::vector<FilePath> &list) {
        return client.StartSendProcess(request_.data(), 2388, list);
    }
    int32_t Send(FileMigrateClient &client) { return client.StartSendProcess(request_.data(), 2388); }

    std::string request_ = std::string(2388, 'q');
    PauseRecorder pauses_;
};

TEST_F(FileMigrateClientTest, PackageRunIsParsedInArrivalOrder) {
    ScriptedPeer peer({Answers(
        {ReplyHeader(7, 0, 3) + Package(3, 0, "a:1,b") + Package(3, 2, "c:0") + Package(3, 1, "")})});
    FileMigrateClient client;
    std::vector<FilePath> list;
    EXPECT_EQ(Send(client, list), 7);
    EXPECT_EQ(Entries(list), "a:2 b:0 c:1");
    EXPECT_EQ(CountPluginLines("SplitMessage, fileList size: 2"), 1u);
    EXPECT_EQ(CountPluginLines("SplitMessage, fileList size: 3"), 2u);
    for (int index = 0; index < 3; ++index) {
        EXPECT_EQ(CountPluginLines("pkgNum: 3, pkgIndex: " + std::to_string(index) + ",fd: "), 1u);
    }
    EXPECT_EQ(peer.Requests(), std::vector<std::string>{request_});
}

// Every chunk arrives in a read of its own; a short read is skipped, four in a row end the run.
TEST_F(FileMigrateClientTest, ShortReadsAreSkippedUntilFourInARowDiscardTheRun) {
    struct Case {
        std::vector<std::string> chunks;
        int32_t result;
        std::string entries;
    };
    const std::vector<Case> cases = {
        {{ReplyHeader(0, 0, 3), Package(3, 0, "/a"), "bits", "bits", "bits", Package(3, 1, "/b"), "bits",
          Package(3, 2, "/c:7")},
         0,
         "/kept:0 /a:0 /b:0 /c:1"},
        {{ReplyHeader(0, 0, 2), Package(2, 0, "/x:1"), "short", "short", "short", "short",
          Package(2, 1, "/never")},
         MIGRATE_ERR_PACKAGES,
         "/kept:0"},
    };
    for (const Case &c : cases) {
        ResetCaptures();
        ScriptedPeer peer({[&c](ScriptedPeer &p, int fd) {
            p.ReadRequest(fd);
            for (const std::string &chunk : c.chunks) {
                p.SendAndWaitRead(fd, chunk);
            }
        }});
        FileMigrateClient client;
        std::vector<FilePath> list = {{"/kept", 0}};
        EXPECT_EQ(Send(client, list), c.result);
        EXPECT_EQ(Entries(list), c.entries);
        EXPECT_EQ(CountPluginLines("failed to read message due to invalid read length, ignore it"), 4u);
        EXPECT_EQ(CountPluginLines("failed to get all packages, need to discard all"),
                  c.result == 0 ? 0u : 1u);
    }
}

TEST_F(FileMigrateClientTest, ResultsPassThroughExceptNoSpaceWithoutPackages) {
    const std::vector<std::string> replies = {
        ReplyHeader(-1, 28, 0), ReplyHeader(-1, 13, 0),  ReplyHeader(5, 28, 0),
        ReplyHeader(0, 0, 0),   ReplyHeader(-1, 28, -1), ReplyHeader(-1, 28, 1) + Package(1, 0, "/p")};
    const std::vector<int32_t> results = {28, -1, 5, 0, 28, -1};
    ScriptedPeer peer({Answers(replies)});
    FileMigrateClient client;
    for (size_t i = 0; i < replies.size(); ++i) {
        EXPECT_EQ(Send(client), results[i]) << i;
    }
    EXPECT_EQ(peer.Connections(), 1) << "one connection serves every request of a client";
    EXPECT_EQ(CountPluginLines("StartSendProcessImpl result: -1, pkgNum: 0, errCode: 13, fd: "), 1u);
}

TEST_F(FileMigrateClientTest, EntriesSplitAtTheLastColonAndEveryComma) {
    FileMigrateClient client;
    std::vector<FilePath> list;
    client.SplitMessage({"/data/x:y:1,/data/x:,/data/plain", ",lead,,trail,", "", std::string(4088, 'z')},
                        list);
    EXPECT_EQ(Entries(list),
              "/data/x:y:2 /data/x:1 /data/plain:0 :0 lead:0 :0 trail:0 " + std::string(4088, 'z') + ":0");
    EXPECT_EQ(CountPluginLines("SplitMessage, fileList size: "), 4u);
}

TEST_F(FileMigrateClientTest, ServiceNotListeningGivesThreeAttemptsAndTwoPauses) {
    FileMigrateClient client;
    EXPECT_EQ(Send(client), MIGRATE_ERR_CONNECT);
    EXPECT_EQ(PauseRecorder::Pauses(), (std::vector<uint32_t>{100, 100}));
    EXPECT_EQ(CountPluginLines("Client: Connect on socket fd"), 3u);
    EXPECT_EQ(CountPluginLines("failed to connect socket"), 3u);
    std::vector<LogLine> rest;
    for (const LogLine &line : PluginLogLines()) {
        if (line.text.rfind("Client: Connect on socket fd", 0) != 0 &&
            line.text != "failed to connect socket") {
            rest.push_back(line);
        }
    }
    EXPECT_EQ(rest, (std::vector<LogLine>{{LOG_INFO, "failed to OpenConnection, retry times 1 ..."},
                                          {LOG_INFO, "failed to OpenConnection, retry times 2 ..."},
                                          {LOG_ERROR, "failed to openConnection, errorCode is 05210002"},
                                          {LOG_ERROR, "connect to Migrate service failed!"}}));
    ScriptedPeer peer({Answers({ReplyHeader(0, 0, 0)})});
    EXPECT_EQ(Send(client), 0) << "a failed client tries again on its next request";
}

TEST_F(FileMigrateClientTest, WithoutASocketNothingHappensAndTheConnectionStateStays) {
    ScriptedPeer peer({Answers({ReplyHeader(0, 0, 0)})});
    FileMigrateClient client;
    ASSERT_EQ(Send(client), 0);
    client.SetSocket(nullptr);
    ResetCaptures();
    EXPECT_EQ(Send(client), MIGRATE_ERR_NO_SOCKET);
    EXPECT_EQ(client.OpenConnection(), MIGRATE_ERR_NO_SOCKET);
    EXPECT_EQ(client.OpenMigrateConnection(), MIGRATE_ERR_NO_SOCKET);
    EXPECT_EQ(PluginLogTexts(), (std::vector<std::string>{"failed to startProcess without socket!",
                                                          "failed to open connection without socket!",
                                                          "failed to open connection without socket!"}));
    // Still "connected": a socket that was never opened is written to directly, and fails.
    client.SetSocket(std::make_shared<MigrateSocket>());
    EXPECT_EQ(Send(client), MIGRATE_ERR_WRITE);
    EXPECT_EQ(CountPluginLines("failed to write message due to invalid write length, fd: -1"), 1u);
    EXPECT_EQ(peer.Connections(), 1);
}

TEST_F(FileMigrateClientTest, ClosedConnectionIsAReadFailureAndStaysInUseUntilClosed) {
    ScriptedPeer peer({CloseAfterRequest(), Answers({ReplyHeader(0, 0, 0)})});
    FileMigrateClient client;
    EXPECT_EQ(Send(client), MIGRATE_ERR_READ);
    EXPECT_EQ(
        CountPluginLines("StartSendProcessImpl, failed to read message due to invalid read length, fd: "),
        1u);
    EXPECT_NE(Send(client), 0) << "the broken connection is reused, not reopened";
    EXPECT_EQ(peer.Connections(), 1);
    client.CloseConnection();
    EXPECT_EQ(Send(client), 0);
    EXPECT_EQ(peer.Connections(), 2);
}

}  // namespace
