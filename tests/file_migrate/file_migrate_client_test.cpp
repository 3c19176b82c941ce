#include "file_migrate_client.h"

#include <gtest/gtest.h>

#include "captured_log.h"
#include "pause_recorder.h"
#include "scripted_peer.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;

namespace Zarvo::UpdateEngine {

bool operator==(const FilePath &a, const FilePath &b) {
    return a.path == b.path && a.kind == b.kind;
}

std::ostream &operator<<(std::ostream &out, const FilePath &p) {
    return out << "(" << p.path << ", " << p.kind << ")";
}

}  // namespace Zarvo::UpdateEngine

namespace {

class FileMigrateClientTest : public testing::Test {
protected:
    void SetUp() override { ResetCaptures(); }

    int32_t Send(FileMigrateClient &client, std::vector<FilePath> &list) {
        return client.StartSendProcess(request_.data(), static_cast<int32_t>(request_.size()), list);
    }

    int32_t Send(FileMigrateClient &client) { return client.StartSendProcess(request_.data(), 2388); }

    std::vector<std::string> LinesWith(const std::string &fragment) {
        std::vector<std::string> found;
        for (const std::string &text : PluginLogTexts()) {
            if (text.find(fragment) != std::string::npos) {
                found.push_back(text);
            }
        }
        return found;
    }

    std::string request_ = std::string(2388, 'q');
    PauseRecorder pauses_;
};

TEST_F(FileMigrateClientTest, PackageRunIsParsedInArrivalOrder) {
    ScriptedPeer peer({[](ScriptedPeer &p, int fd) {
        p.ReadRequest(fd);
        ScriptedPeer::Send(
            fd, ReplyHeader(7, 0, 3) + Package(3, 0, "a:1,b") + Package(3, 2, "c:0") + Package(3, 1, ""));
    }});
    FileMigrateClient client;
    std::vector<FilePath> list;
    EXPECT_EQ(Send(client, list), 7);
    EXPECT_EQ(list, (std::vector<FilePath>{{"a", 2}, {"b", 0}, {"c", 1}}));
    EXPECT_EQ(LinesWith("SplitMessage"),
              (std::vector<std::string>{"SplitMessage, fileList size: 2", "SplitMessage, fileList size: 3",
                                        "SplitMessage, fileList size: 3"}));
    std::vector<std::string> packageLines;
    for (const std::string &line : LinesWith("pkgIndex")) {
        packageLines.push_back(line.substr(0, line.find(",fd: ")));
    }
    EXPECT_EQ(packageLines, (std::vector<std::string>{"pkgNum: 3, pkgIndex: 0", "pkgNum: 3, pkgIndex: 2",
                                                      "pkgNum: 3, pkgIndex: 1"}));
    EXPECT_EQ(peer.Requests(), std::vector<std::string>{request_});
}

TEST_F(FileMigrateClientTest, FourShortReadsInARowDiscardTheWholeRun) {
    ScriptedPeer peer({[](ScriptedPeer &p, int fd) {
        p.ReadRequest(fd);
        p.SendAndWaitRead(fd, ReplyHeader(0, 0, 2));
        p.SendAndWaitRead(fd, Package(2, 0, "/x:1"));
        for (int i = 0; i < 4; ++i) {
            p.SendAndWaitRead(fd, "short");
        }
        p.SendAndWaitRead(fd, Package(2, 1, "/never"));
    }});
    FileMigrateClient client;
    std::vector<FilePath> list = {{"/kept", 0}};
    EXPECT_EQ(Send(client, list), MIGRATE_ERR_PACKAGES);
    EXPECT_EQ(list, (std::vector<FilePath>{{"/kept", 0}}));
    EXPECT_EQ(CountPluginLines("failed to read message due to invalid read length, ignore it"), 4u);
    EXPECT_EQ(CountPluginLines("failed to get all packages, need to discard all"), 1u);
    EXPECT_EQ(CountPluginLines("SplitMessage"), 0u);
}

TEST_F(FileMigrateClientTest, ShortReadsBetweenFullOnesNeverEndTheRun) {
    ScriptedPeer peer({[](ScriptedPeer &p, int fd) {
        p.ReadRequest(fd);
        p.SendAndWaitRead(fd, ReplyHeader(0, 0, 3));
        p.SendAndWaitRead(fd, Package(3, 0, "/a"));
        for (int i = 0; i < 3; ++i) {
            p.SendAndWaitRead(fd, "bits");
        }
        p.SendAndWaitRead(fd, Package(3, 1, "/b"));
        p.SendAndWaitRead(fd, "bits");
        p.SendAndWaitRead(fd, Package(3, 2, "/c:7"));
    }});
    FileMigrateClient client;
    std::vector<FilePath> list;
    EXPECT_EQ(Send(client, list), 0);
    EXPECT_EQ(list, (std::vector<FilePath>{{"/a", 0}, {"/b", 0}, {"/c", 1}}));
    EXPECT_EQ(CountPluginLines("ignore it"), 4u);
}

TEST_F(FileMigrateClientTest, ServiceResultsAndTheNoSpaceMapping) {
    struct Case {
        int32_t result, errCode;
        int32_t expected;
    };
    const std::vector<Case> cases = {{-1, 28, 28}, {-1, 13, -1}, {5, 28, 5}, {0, 0, 0}, {-1, 28, 28}};
    ScriptedPeer peer({[&cases](ScriptedPeer &p, int fd) {
        for (const Case &c : cases) {
            p.ReadRequest(fd);
            ScriptedPeer::Send(fd, ReplyHeader(c.result, c.errCode, 0));
        }
    }});
    FileMigrateClient client;
    for (const Case &c : cases) {
        EXPECT_EQ(Send(client), c.expected) << c.result << "/" << c.errCode;
    }
    EXPECT_EQ(peer.Connections(), 1) << "one connection serves every request of a client";
    EXPECT_EQ(CountPluginLines("StartSendProcessImpl result: -1, pkgNum: 0, errCode: 13, fd: "), 1u);
}

TEST_F(FileMigrateClientTest, PackagesTakePrecedenceOverTheNoSpaceMapping) {
    ScriptedPeer peer({[](ScriptedPeer &p, int fd) {
        p.ReadRequest(fd);
        ScriptedPeer::Send(fd, ReplyHeader(-1, 28, 1) + Package(1, 0, "/p"));
    }});
    FileMigrateClient client;
    std::vector<FilePath> list;
    EXPECT_EQ(Send(client, list), -1);
    EXPECT_EQ(list.size(), 1u);
}

TEST_F(FileMigrateClientTest, EntriesSplitAtTheLastColonAndEveryComma) {
    FileMigrateClient client;
    std::vector<FilePath> list;
    client.SplitMessage({"/data/x:y:1,/data/x:,/data/plain", ",lead,,trail,", "", std::string(4088, 'z')},
                        list);
    std::vector<FilePath> expected = {
        {"/data/x:y", 2}, {"/data/x", 1}, {"/data/plain", 0}, {"", 0},
        {"lead", 0},      {"", 0},        {"trail", 0},       {std::string(4088, 'z'), 0}};
    EXPECT_EQ(list, expected);
    EXPECT_EQ(CountPluginLines("SplitMessage, fileList size: "), 4u);
    ResetCaptures();
    client.SplitMessage({}, list);
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(FileMigrateClientTest, NegativePackageCountReadsNothing) {
    FileMigrateClient client;
    std::vector<FilePath> list;
    EXPECT_EQ(client.GetAllPackagesMsg(-1, list), 0);
    EXPECT_EQ(client.GetAllPackagesMsg(0, list), 0);
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{{LOG_ERROR, "failed to get all packages, need to discard all"}}));
}

TEST_F(FileMigrateClientTest, ServiceNotListeningGivesThreeAttemptsAndTwoPauses) {
    FileMigrateClient client;
    EXPECT_EQ(Send(client), MIGRATE_ERR_CONNECT);
    EXPECT_EQ(PauseRecorder::Pauses(), (std::vector<uint32_t>{100, 100}));
    EXPECT_EQ(CountPluginLines("Client: Connect on socket fd"), 3u);
    EXPECT_EQ(CountPluginLines("failed to connect socket"), 3u);
    std::vector<LogLine> tail;
    for (const LogLine &line : PluginLogLines()) {
        if (line.text.find("retry times") != std::string::npos ||
            line.text.find("openConnection") != std::string::npos ||
            line.text.find("Migrate service") != std::string::npos) {
            tail.push_back(line);
        }
    }
    EXPECT_EQ(tail, (std::vector<LogLine>{{LOG_INFO, "failed to OpenConnection, retry times 1 ..."},
                                          {LOG_INFO, "failed to OpenConnection, retry times 2 ..."},
                                          {LOG_ERROR, "failed to openConnection, errorCode is 05210002"},
                                          {LOG_ERROR, "connect to Migrate service failed!"}}));

    // A failed client tries again on its next request.
    ScriptedPeer peer({AnswerEach(ReplyHeader(0, 0, 0))});
    EXPECT_EQ(Send(client), 0);
}

TEST_F(FileMigrateClientTest, WithoutASocketNothingHappensAndTheStateStays) {
    ScriptedPeer peer({AnswerEach(ReplyHeader(0, 0, 0))});
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
    // Still connected: a socket that was never opened is written to directly, and fails.
    client.SetSocket(std::make_shared<MigrateSocket>());
    EXPECT_EQ(Send(client), MIGRATE_ERR_WRITE);
    EXPECT_EQ(CountPluginLines("failed to write message due to invalid write length, fd: -1"), 1u);
    EXPECT_EQ(peer.Connections(), 1);
}

TEST_F(FileMigrateClientTest, ClosedConnectionIsAReadFailureAndTheStateStaysConnected) {
    ScriptedPeer peer({CloseAfterRequest(), AnswerEach(ReplyHeader(0, 0, 0))});
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
