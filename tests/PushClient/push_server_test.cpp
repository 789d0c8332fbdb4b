// The scripted push server the push client's and the daemon's tests and the operator tool
// rely on: handshake parsing, framing, recording and sending in pieces (reset, peer close and
// listening again are exercised by the client's and the daemon's tests).
#include "tools/pushserver/push_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

using pushserver::Handshake;
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
    for (ssize_t r; got.size() < n && (r = recv(fd, buf, sizeof buf, 0)) > 0;)
        got.append(buf, size_t(r));
    return got;
}

}  // namespace

TEST(PushServerTest, HandshakeAndFrameTexts) {
    Handshake h;
    ASSERT_TRUE(Handshake::parse("a:b:(0123abcd)10\nvintrago\n\n", &h));
    EXPECT_EQ("a:b|0123abcd|10|vintrago",
              h.domain + "|" + h.identifier + "|" + h.userId + "|" + h.loginParam);
    ASSERT_TRUE(Handshake::parse("BOX:10\n\n\n", &h));
    EXPECT_EQ("BOX||10|", h.domain + "|" + h.identifier + "|" + h.userId + "|" + h.loginParam);
    for (const char* bad :
         {"BOX:(x)10\nL\n", "BOX:(x)10\nL\n\nmore", "BOX(x)10\nL\n\n", "BOX:(x10\nL\n\n"}) {
        EXPECT_FALSE(Handshake::parse(bad, &h)) << bad;
    }
    EXPECT_EQ("0018#1:integrity hello", pushserver::frame("#1:integrity hello"));
    EXPECT_EQ("0000", pushserver::frame(""));
}

TEST(PushServerTest, RecordsWhatClientsSendAndSendsFramesInPieces) {
    pushserver::PushServer server;
    ASSERT_TRUE(server.listen());
    int fd = connectTo(server.port());
    ASSERT_TRUE(server.waitForConnections(1, 5s));

    std::string hello = "BOX:(ab)10\nL\n\n";
    ASSERT_EQ(ssize_t(hello.size()), send(fd, hello.data(), hello.size(), 0));
    ASSERT_TRUE(server.waitForHandshake(0, 5s));
    EXPECT_EQ(hello, server.received(0));
    ASSERT_TRUE(server.sendFrame(0, "#1:x"));
    ASSERT_TRUE(server.sendFrameSplit(0, "#1:yz", {1, 2}, 1ms));
    ASSERT_TRUE(server.sendFrameBytewise(0, "#2:w", 1ms));
    ASSERT_TRUE(server.sendRaw(0, "abcd"));
    EXPECT_EQ("0004#1:x0005#1:yz0004#2:wabcd", readSome(fd, 29));
    ASSERT_TRUE(server.close(0));
    EXPECT_EQ("", readSome(fd, 1));
    EXPECT_FALSE(server.sendRaw(0, "x"));
    EXPECT_FALSE(server.sendRaw(7, "x"));
    close(fd);
}
