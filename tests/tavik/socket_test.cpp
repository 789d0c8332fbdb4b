// The TCP client socket against small peers on 127.0.0.1.
#include "tavik/tk_socket.h"
#include "tests/tavik/loopback_port.h"

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

using tavik::socks;

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace

TEST(SocketTest, NullHostZeroLengthSendAndRecvTimeLimits) {
    LoopbackPort server(true);
    socks s;
    ASSERT_EQ(1, s.connect(nullptr, server.port));
    EXPECT_EQ(htonl(INADDR_LOOPBACK), s.addr.sin_addr.s_addr);
    int peer = server.accept();
    char buf[16] = "hello, push";
    EXPECT_EQ(11, s.send(buf, 0));
    EXPECT_EQ(3, s.send(buf, 3));
    std::string got(14, '\0');
    EXPECT_EQ(14, ::recv(peer, &got[0], got.size(), MSG_WAITALL));
    EXPECT_EQ("hello, pushhel", got);

    Clock::time_point start = Clock::now();
    EXPECT_EQ(tavik::sErrTimeout, s.recv(buf, sizeof buf, 0, 0));
    EXPECT_LT(secondsSince(start), 0.5);
    start = Clock::now();
    EXPECT_EQ(tavik::sErrTimeout, s.recv(buf, sizeof buf, 1, 500));
    EXPECT_GT(secondsSince(start), 1.3);
    EXPECT_LT(secondsSince(start), 3.0);
    ASSERT_EQ(3, ::send(peer, "abc", 3, 0));
    EXPECT_EQ(3, s.recv(buf, sizeof buf, 1, 0));
    close(peer);
    EXPECT_EQ(0, s.recv(buf, sizeof buf, 1, 0));

    // The time-limited connect leaves an ordinary blocking socket behind.
    socks timed;
    EXPECT_EQ(1, timed.connect("127.0.0.1", server.port, 0, 500000));
    EXPECT_EQ(0, fcntl(timed._sock.load(), F_GETFL) & O_NONBLOCK);
}

TEST(SocketTest, SocketWithoutConnectionRefusesIo) {
    LoopbackPort server(true);
    socks fresh, closed;
    ASSERT_EQ(1, closed.connect(nullptr, server.port));
    closed.disconnect();
    for (socks* s : {&fresh, &closed}) {
        char buf[4] = "abc";
        EXPECT_EQ(tavik::sErrDisconnected, s->send(buf, 0));
        EXPECT_EQ(tavik::sErrDisconnected, s->recv(buf, sizeof buf, 0, 0));
        EXPECT_EQ(0, s->waitForRead(0, 0));
    }
}

TEST(SocketTest, FailedConnectsLeakNoDescriptor) {
    LoopbackPort refused(false);
    LoopbackPort server(true);
    int before = openDescriptors();
    {
        socks s;
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(0, s.connect("127.0.0.1", refused.port));
        }
        s.disconnect();
        EXPECT_EQ(before, openDescriptors());
        // Connecting an object that is still connected closes that connection and fails.
        ASSERT_EQ(1, s.connect(nullptr, server.port));
        int peer = server.accept();
        EXPECT_EQ(0, s.connect(nullptr, server.port));
        char buf[4];
        EXPECT_EQ(0, ::recv(peer, buf, sizeof buf, 0));
        close(peer);
        EXPECT_EQ(0, s.connect(nullptr, refused.port));
    }
    EXPECT_EQ(before, openDescriptors());
}

TEST(SocketTest, WriteAfterPeerResetFailsWithoutSignal) {
    LoopbackPort server(true);
    socks s;
    ASSERT_EQ(1, s.connect(nullptr, server.port));
    int peer = server.accept();
    linger hard = {1, 0};
    setsockopt(peer, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    close(peer);  // sends a reset
    // The first failure reports the reset, the next ones a broken pipe; a raised SIGPIPE
    // would end this program here.
    int failures = 0;
    for (int i = 0; i < 50 && failures < 3; i++) {
        failures += s.send("ping", 0) == -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(3, failures);
}

TEST(SocketTest, DisconnectWakesPendingRecv) {
    LoopbackPort server(true);
    socks s;
    ASSERT_EQ(1, s.connect(nullptr, server.port));
    int peer = server.accept();
    ssize_t result = 1;
    Clock::time_point start = Clock::now();
    std::thread reader([&] {
        char buf[8];
        result = s.recv(buf, sizeof buf, 10, 0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    s.disconnect();
    reader.join();
    EXPECT_LE(result, 0);
    EXPECT_LT(secondsSince(start), 5.0);
    close(peer);

    // A reader polling in a loop never touches the descriptor after it has been closed.
    for (int round = 0; round < 50; round++) {
        socks busy;
        ASSERT_EQ(1, busy.connect(nullptr, server.port));
        int other = server.accept();
        std::thread poller([&busy] {
            char buf[8];
            while (busy.recv(buf, sizeof buf, 0, 1) != tavik::sErrDisconnected) {
            }
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        busy.disconnect();
        poller.join();
        close(other);
    }
}

TEST(SocketTest, SenderAndReceiverRunTogether) {
    LoopbackPort server(true);
    socks s;
    ASSERT_EQ(1, s.connect(nullptr, server.port));
    int peer = server.accept();
    const size_t total = 200000;
    // The peer echoes everything back, so both directions are busy at once.
    std::thread echo([&] {
        char buf[4096];
        ssize_t n;
        while ((n = ::recv(peer, buf, sizeof buf, 0)) > 0) {
            ASSERT_EQ(n, ::send(peer, buf, static_cast<size_t>(n), MSG_NOSIGNAL));
        }
    });
    std::thread sender([&] {
        std::string chunk(1000, 'x');
        for (size_t sent = 0; sent < total;) {
            ssize_t n = s.send(chunk.c_str(), chunk.size());
            ASSERT_GT(n, 0);
            sent += static_cast<size_t>(n);
        }
    });
    size_t received = 0;
    char buf[4096];
    while (received < total) {
        ssize_t n = s.recv(buf, sizeof buf, 5, 0);
        ASSERT_GT(n, 0);
        received += static_cast<size_t>(n);
    }
    sender.join();
    s.disconnect();
    shutdown(peer, SHUT_RDWR);
    echo.join();
    close(peer);
    EXPECT_EQ(total, received);
}

TEST(SocketTest, WaitsWorkOnDescriptorsAboveFdSetSize) {
    rlimit lim;
    getrlimit(RLIMIT_NOFILE, &lim);
    lim.rlim_cur = std::min<rlim_t>(lim.rlim_max, FD_SETSIZE + 64);
    if (setrlimit(RLIMIT_NOFILE, &lim) != 0 || lim.rlim_cur < FD_SETSIZE + 64) {
        GTEST_SKIP() << "descriptor limit too low";
    }
    LoopbackPort server(true);
    std::vector<int> fillers;
    while (fillers.empty() || (fillers.back() >= 0 && fillers.back() < FD_SETSIZE + 8)) {
        fillers.push_back(dup(server.fd));
    }
    {
        socks s;
        ASSERT_EQ(1, s.connect(nullptr, server.port));
        EXPECT_GE(s._sock.load(), FD_SETSIZE);
        int peer = server.accept();
        char buf[8];
        EXPECT_EQ(0, s.waitForRead(0, 50));
        EXPECT_EQ(tavik::sErrTimeout, s.recv(buf, sizeof buf, 0, 50));
        ASSERT_EQ(2, ::send(peer, "ok", 2, 0));
        EXPECT_EQ(2, s.recv(buf, sizeof buf, 1, 0));
        close(peer);
    }
    for (int fd : fillers) {
        close(fd);
    }
}
