#include "migrate_socket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>

#include "captured_log.h"
#include "migrate_peers.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;

namespace {

TEST(MigrateSocketTest, BadArgumentsAndAMissingServiceFailWithTheirMessages) {
    ResetCaptures();
    MigrateSocket socket;
    char buf[4] = {};
    EXPECT_EQ(socket.WriteSocketMessage(buf, 4), -1);
    EXPECT_EQ(socket.ConnectSocket(), -1);
    ASSERT_EQ(socket.CreateSocket(), 0);
    std::string fd = std::to_string(socket.GetSocketFd());
    EXPECT_EQ(socket.WriteSocketMessage(nullptr, 4), -1);
    EXPECT_EQ(socket.ReadSocketMessage(buf, 0), -1);
    EXPECT_EQ(socket.ConnectSocket(-5), -1);
    EXPECT_EQ(socket.GetSocketFd(), std::stoi(fd)) << "bad arguments leave the socket alone";
    EXPECT_EQ(socket.ConnectSocket(), -1);
    EXPECT_EQ(socket.GetSocketFd(), -1) << "a failed connection closes the socket";
    EXPECT_EQ(PluginLogTexts(),
              (std::vector<std::string>{
                  "Invalid args: socket -1, len 4, buf might be nullptr",
                  "Client: Invalid socket fd: -1",
                  "Invalid args: socket " + fd + ", len 4, buf might be nullptr",
                  "Invalid args: socket " + fd + ", len 0, buf might be nullptr",
                  "Client: Invalid socket fd: -5",
                  "Client: Connect on socket fd " + fd + ", failed: " + std::to_string(ENOENT),
              }));
}

TEST(MigrateSocketTest, NewSocketCarriesTheBufferSizeAndTimeouts) {
    MigrateSocket socket;
    ASSERT_EQ(socket.CreateSocket(), 0);
    for (int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        timeval timeout{};
        socklen_t length = sizeof(timeout);
        ASSERT_EQ(getsockopt(socket.GetSocketFd(), SOL_SOCKET, option, &timeout, &length), 0);
        EXPECT_EQ(timeout.tv_sec, 3600);
    }
    int rcvbuf = 0;
    socklen_t length = sizeof(rcvbuf);
    ASSERT_EQ(getsockopt(socket.GetSocketFd(), SOL_SOCKET, SO_RCVBUF, &rcvbuf, &length), 0);
    EXPECT_EQ(rcvbuf, 2 * 10240) << "the kernel reports twice the size asked for";
}

TEST(MigrateSocketTest, ShortAndClosedReadsReturnTheirCountAndAWriteToAClosedPeerFailsQuietly) {
    ResetCaptures();
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
    std::string fd = std::to_string(socket.GetSocketFd());
    EXPECT_EQ(CountPluginLines("Read message from fd " + fd + " error, len 5, err "), 1u);
    EXPECT_EQ(CountPluginLines("Read message from fd " + fd + " error, len 0, err "), 1u);
    EXPECT_EQ(peer.Requests(), std::vector<std::string>{request});
    // The first write after the close may still be buffered; a later one fails without SIGPIPE.
    int written = 0;
    for (int i = 0; i < 3 && written >= 0; ++i) {
        written = socket.WriteSocketMessage(request.data(), 2388);
    }
    EXPECT_EQ(written, -1);
    EXPECT_GE(
        CountPluginLines("Write message from fd " + fd + " error, wLen -1,err " + std::to_string(EPIPE)), 1u);
}

}  // namespace
