// The scripted push server used by the push client's and the daemon's tests.
#include "tools/pushserver/push_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

using pushserver::Handshake;
using pushserver::PushServer;
using namespace std::chrono_literals;

namespace {

int connectTo(int port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

std::string readSome(int fd, size_t n) {
    std::string got;
    char buf[256];
    while (got.size() < n) {
        ssize_t r = recv(fd, buf, sizeof buf, 0);
        if (r <= 0) {
            break;
        }
        got.append(buf, static_cast<size_t>(r));
    }
    return got;
}

}  // namespace

TEST(PushServerTest, HandshakeParserSplitsIdentityAndLogin) {
    Handshake h;
    ASSERT_TRUE(Handshake::parse("BOX:(0123456789abcdef0123456789abcdef)10\nvintrago\n\n", &h));
    EXPECT_EQ("BOX", h.domain);
    EXPECT_EQ("0123456789abcdef0123456789abcdef", h.identifier);
    EXPECT_EQ("10", h.userId);
    EXPECT_EQ("vintrago", h.loginParam);

    ASSERT_TRUE(Handshake::parse("a:b:(x)7\n\n\n", &h));
    EXPECT_EQ("a:b", h.domain);
    EXPECT_EQ("", h.loginParam);
    ASSERT_TRUE(Handshake::parse("BOX:10\nL\n\n", &h));
    EXPECT_EQ("", h.identifier);
    EXPECT_EQ("10", h.userId);

    EXPECT_FALSE(Handshake::parse("BOX:(x)10\nL\n", &h));
    EXPECT_FALSE(Handshake::parse("BOX:(x)10\nL\n\nmore", &h));
    EXPECT_FALSE(Handshake::parse("BOX(x)10\nL\n\n", &h));
    EXPECT_FALSE(Handshake::parse("BOX:(x10\nL\n\n", &h));
}

TEST(PushServerTest, FrameCarriesFourDigitLength) {
    EXPECT_EQ("0018#1:integrity hello", pushserver::frame("#1:integrity hello"));
    EXPECT_EQ("0000", pushserver::frame(""));
}

TEST(PushServerTest, RecordsBytesAndSendsFramesInPieces) {
    PushServer server;
    ASSERT_TRUE(server.listen());
    int fd = connectTo(server.port());
    ASSERT_GE(fd, 0);
    ASSERT_TRUE(server.waitForConnections(1, 5s));

    std::string hello = "BOX:(ab)10\nL\n\n";
    ASSERT_EQ(static_cast<ssize_t>(hello.size()), send(fd, hello.data(), hello.size(), 0));
    Handshake h;
    ASSERT_TRUE(server.waitForHandshake(0, 5s, &h));
    EXPECT_EQ("ab", h.identifier);
    EXPECT_EQ(hello, server.received(0));

    ASSERT_TRUE(server.sendFrame(0, "#1:x"));
    ASSERT_TRUE(server.sendFrameSplit(0, "#1:yz", {1, 2}, 1ms));
    ASSERT_TRUE(server.sendFrameBytewise(0, "#2:w", 1ms));
    ASSERT_TRUE(server.sendRaw(0, "abcd"));
    EXPECT_EQ("0004#1:x0005#1:yz0004#2:wabcd", readSome(fd, 29));

    ASSERT_TRUE(server.close(0));
    EXPECT_EQ("", readSome(fd, 1));
    EXPECT_FALSE(server.sendRaw(0, "x"));
    EXPECT_FALSE(server.close(0));
    EXPECT_FALSE(server.sendRaw(7, "x"));
    close(fd);
}

TEST(PushServerTest, ResetAbortsAndClientCloseIsSeen) {
    PushServer server;
    ASSERT_TRUE(server.listen());
    int first = connectTo(server.port());
    int second = connectTo(server.port());
    ASSERT_TRUE(server.waitForConnections(2, 5s));

    ASSERT_TRUE(server.reset(0));
    char c;
    EXPECT_EQ(-1, recv(first, &c, 1, 0));
    EXPECT_EQ(ECONNRESET, errno);

    close(second);
    EXPECT_TRUE(server.waitForPeerClose(1, 5s));
    EXPECT_TRUE(server.peerClosed(1));
    EXPECT_FALSE(server.waitForHandshake(1, 10ms));
    close(first);
}

TEST(PushServerTest, ListensAgainOnTheSamePort) {
    PushServer server;
    ASSERT_TRUE(server.listen());
    int port = server.port();
    EXPECT_FALSE(server.listen());
    server.stopListening();
    EXPECT_LT(connectTo(port), 0);
    ASSERT_TRUE(server.listen(port));
    EXPECT_EQ(port, server.port());
    int fd = connectTo(port);
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(server.waitForConnections(1, 5s));
    close(fd);
}
