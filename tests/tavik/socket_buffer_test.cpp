// The TCP client socket's read-ahead: bytes taken by one read are handed out over later calls.
#include "tavik/tk_socket.h"
#include "tests/tavik/loopback_port.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

using tavik::socks;

namespace {

const size_t total = 100000;

// A client connected to a peer on 127.0.0.1; the peer side is closed with the fixture.
struct SocketBufferTest : ::testing::Test {
    void SetUp() override {
        ASSERT_EQ(1, s.connect(nullptr, server.port));
        peer = server.accept();
        ASSERT_GE(peer, 0);
    }
    void TearDown() override {
        if (peer >= 0) {
            close(peer);
        }
    }
    // Nothing left in the kernel for the client: whatever recv returns comes from its buffer.
    bool kernelEmpty() {
        char c;
        return ::recv(s._sock.load(), &c, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
    }
    std::string take(unsigned int len, long sec = 0) {
        char buf[64];
        ssize_t n = s.recv(buf, len, sec, 0);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "<" + std::to_string(n) + ">";
    }
    LoopbackPort server{true};
    socks s;
    int peer = -1;
};

}  // namespace

TEST_F(SocketBufferTest, ServesBufferedBytesAcrossSmallReadsWithoutWaiting) {
    ASSERT_EQ(10, ::send(peer, "0004abcdef", 10, 0));
    EXPECT_EQ("0004", take(4, 1));
    EXPECT_TRUE(kernelEmpty());
    EXPECT_GT(s.waitForRead(0, 0), 0);
    EXPECT_EQ("abc", take(3));
    EXPECT_EQ("def", take(8));  // no more than is buffered, and no wait
    EXPECT_EQ("<-5>", take(8));
}

TEST_F(SocketBufferTest, PeerCloseAfterBufferedDataGivesTheDataThenZero) {
    ASSERT_EQ(5, ::send(peer, "hello", 5, 0));
    close(peer);
    peer = -1;
    EXPECT_EQ("he", take(2, 1));
    EXPECT_EQ("ll", take(2, 1));
    EXPECT_EQ("o", take(2, 1));
    EXPECT_EQ("<0>", take(2, 1));
}

TEST_F(SocketBufferTest, DisconnectDropsBufferedBytes) {
    ASSERT_EQ(6, ::send(peer, "abcdef", 6, 0));
    EXPECT_EQ("ab", take(2, 1));
    s.disconnect();
    EXPECT_EQ("<-1>", take(2));
    EXPECT_EQ(0, s.waitForRead(0, 0));

    // A new connection on the same object starts with nothing buffered.
    ASSERT_EQ(1, s.connect(nullptr, server.port));
    int other = server.accept();
    EXPECT_EQ(0, s.waitForRead(0, 0));
    EXPECT_EQ("<-5>", take(2));
    close(other);
}

TEST_F(SocketBufferTest, SmallReadsOnOneThreadWhileAnotherSends) {
    std::thread echo([this] {
        char buf[4096];
        ssize_t n;
        while ((n = ::recv(peer, buf, sizeof buf, 0)) > 0) {
            ::send(peer, buf, static_cast<size_t>(n), MSG_NOSIGNAL);
        }
    });
    std::thread sender([this] {
        std::string text;
        for (size_t i = 0; i < total; i++) {
            text += static_cast<char>('a' + i % 26);
        }
        for (size_t sent = 0; sent < total;) {
            ssize_t n = s.send(text.c_str() + sent, total - sent < 999 ? total - sent : 999);
            ASSERT_GT(n, 0);
            sent += static_cast<size_t>(n);
        }
    });
    size_t received = 0;
    bool inOrder = true;
    while (received < total) {
        char buf[7];
        ssize_t n = s.recv(buf, sizeof buf, 5, 0);
        ASSERT_GT(n, 0);
        for (ssize_t i = 0; i < n; i++, received++) {
            inOrder = inOrder && buf[i] == static_cast<char>('a' + received % 26);
        }
    }
    sender.join();
    s.disconnect();
    shutdown(peer, SHUT_RDWR);
    echo.join();
    EXPECT_TRUE(inOrder);
    EXPECT_EQ(total, received);
}
