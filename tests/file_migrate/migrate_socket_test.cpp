#include "migrate_socket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>

#include "captured_log.h"
#include "scripted_peer.h"

using namespace Zarvo::UpdateEngine;
using Zarvo::Testing::CountPluginLines;
using Zarvo::Testing::PluginLogLines;
using Zarvo::Testing::PluginLogTexts;
using Zarvo::Testing::ScriptedPeer;

namespace {

class MigrateSocketTest : public testing::Test {
protected:
    void SetUp() override { Zarvo::Testing::ResetCaptures(); }
};

TEST_F(MigrateSocketTest, InvalidArgumentsAreRefusedWithoutTouchingTheDescriptor) {
    MigrateSocket socket;
    char buf[4] = {};
    EXPECT_EQ(socket.WriteSocketMessage(buf, 4), -1);
    ASSERT_EQ(socket.CreateSocket(), 0);
    int fd = socket.GetSocketFd();
    EXPECT_EQ(socket.WriteSocketMessage(nullptr, 4), -1);
    EXPECT_EQ(socket.WriteSocketMessage(buf, 0), -1);
    EXPECT_EQ(socket.ReadSocketMessage(buf, -3), -1);
    EXPECT_EQ(socket.GetSocketFd(), fd);
    std::vector<std::string> expected = {
        "Invalid args: socket -1, len 4, buf might be nullptr",
        "Invalid args: socket " + std::to_string(fd) + ", len 4, buf might be nullptr",
        "Invalid args: socket " + std::to_string(fd) + ", len 0, buf might be nullptr",
        "Invalid args: socket " + std::to_string(fd) + ", len -3, buf might be nullptr",
    };
    EXPECT_EQ(PluginLogTexts(), expected);
}

TEST_F(MigrateSocketTest, NewSocketCarriesTheBufferAndTimeoutOptions) {
    MigrateSocket socket;
    ASSERT_EQ(socket.CreateSocket(), 0);
    timeval timeout{};
    socklen_t length = sizeof(timeout);
    ASSERT_EQ(getsockopt(socket.GetSocketFd(), SOL_SOCKET, SO_RCVTIMEO, &timeout, &length), 0);
    EXPECT_EQ(timeout.tv_sec, 3600);
    ASSERT_EQ(getsockopt(socket.GetSocketFd(), SOL_SOCKET, SO_SNDTIMEO, &timeout, &length), 0);
    EXPECT_EQ(timeout.tv_sec, 3600);
    int rcvbuf = 0;
    length = sizeof(rcvbuf);
    ASSERT_EQ(getsockopt(socket.GetSocketFd(), SOL_SOCKET, SO_RCVBUF, &rcvbuf, &length), 0);
    EXPECT_EQ(rcvbuf, 2 * 10240) << "the kernel reports twice the size asked for";
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(MigrateSocketTest, ConnectWithoutAServiceClosesTheSocket) {
    MigrateSocket socket;
    EXPECT_EQ(socket.ConnectSocket(-5), -1);
    EXPECT_EQ(socket.ConnectSocket(), -1);
    ASSERT_EQ(socket.CreateSocket(), 0);
    int fd = socket.GetSocketFd();
    EXPECT_EQ(socket.ConnectSocket(), -1);
    EXPECT_EQ(socket.GetSocketFd(), -1);
    std::vector<std::string> expected = {
        "Client: Invalid socket fd: -5",
        "Client: Invalid socket fd: -1",
        "Client: Connect on socket fd " + std::to_string(fd) + ", failed: " + std::to_string(ENOENT),
    };
    EXPECT_EQ(PluginLogTexts(), expected);
}

TEST_F(MigrateSocketTest, ShortAndClosedReadsReturnTheirCount) {
    ScriptedPeer peer({[](ScriptedPeer &p, int fd) {
        p.ReadRequest(fd);
        p.SendAndWaitRead(fd, "12345");
    }});
    MigrateSocket socket;
    ASSERT_EQ(socket.CreateSocket(), 0);
    ASSERT_EQ(socket.ConnectSocket(), 0);
    std::string request(2388, 'r');
    EXPECT_EQ(socket.WriteSocketMessage(request.data(), 2388), 2388);
    char buf[12];
    EXPECT_EQ(socket.ReadSocketMessage(buf, 12), 5);
    EXPECT_EQ(socket.ReadSocketMessage(buf, 12), 0);
    int fd = socket.GetSocketFd();
    EXPECT_EQ(CountPluginLines("Read message from fd " + std::to_string(fd) + " error, len 5, err "), 1u);
    EXPECT_EQ(CountPluginLines("Read message from fd " + std::to_string(fd) + " error, len 0, err "), 1u);
    EXPECT_EQ(peer.Requests(), std::vector<std::string>{request});
}

TEST_F(MigrateSocketTest, WriteToAClosedServiceFailsWithoutEndingTheProcess) {
    ScriptedPeer peer({[](ScriptedPeer &, int) {}});
    MigrateSocket socket;
    ASSERT_EQ(socket.CreateSocket(), 0);
    ASSERT_EQ(socket.ConnectSocket(), 0);
    char byte;
    ASSERT_EQ(socket.ReadSocketMessage(&byte, 1), 0);
    std::string request(2388, 'r');
    int written = 0;
    for (int i = 0; i < 3 && written >= 0; ++i) {
        written = socket.WriteSocketMessage(request.data(), 2388);
    }
    EXPECT_EQ(written, -1);
    EXPECT_GE(CountPluginLines("error, wLen -1,err " + std::to_string(EPIPE)), 1u);
}

}  // namespace
