// The TCP client socket against small peers on 127.0.0.1.
#include "tavik/tk_socket.h"
#include "tests/tavik/loopback_port.h"

#include <sys/resource.h>

#include <gtest/gtest.h>

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

std::string readExactly(int fd, size_t n) {
    std::string got(n, '\0');
    size_t have = 0;
    while (have < n) {
        ssize_t r = ::recv(fd, &got[have], n - have, 0);
        if (r <= 0) {
            break;
        }
        have += static_cast<size_t>(r);
    }
    got.resize(have);
    return got;
}

}  // namespace

TEST(SocketTest, NullHostConnectsToLoopbackAndZeroLengthSendsWholeText) {
    LoopbackPort server(true);
    socks s;
    ASSERT_EQ(1, s.connect(nullptr, server.port));
    EXPECT_TRUE(s.connected);
    EXPECT_EQ(htonl(INADDR_LOOPBACK), s.addr.sin_addr.s_addr);
    EXPECT_EQ(server.port, s.servicePort);
    int peer = server.accept();
    ASSERT_GE(peer, 0);

    char text[] = "hello, push";
    EXPECT_EQ(11, s.send(text, 0));
    EXPECT_EQ(3, s.send(text, 3));
    EXPECT_EQ("hello, pushhel", readExactly(peer, 14));
    close(peer);
}

TEST(SocketTest, RecvReportsTimeoutDataAndPeerClose) {
    LoopbackPort server(true);
    socks s;
    ASSERT_EQ(1, s.connect("127.0.0.1", server.port));
    EXPECT_STREQ("127.0.0.1", s.serviceAddr.getPtr());
    int peer = server.accept();
    char buf[16];

    Clock::time_point start = Clock::now();
    EXPECT_EQ(tavik::sErrTimeout, s.recv(buf, sizeof buf, 0, 0));
    EXPECT_LT(secondsSince(start), 0.5);

    start = Clock::now();
    EXPECT_EQ(tavik::sErrTimeout, s.recv(buf, sizeof buf, 1, 500));
    double waited = secondsSince(start);
    EXPECT_GT(waited, 1.3);
    EXPECT_LT(waited, 3.0);

    ASSERT_EQ(3, ::send(peer, "abc", 3, 0));
    EXPECT_GT(s.waitForRead(1, 0), 0);
    EXPECT_EQ(3, s.recv(buf, sizeof buf, 1, 0));
    close(peer);
    EXPECT_EQ(0, s.recv(buf, sizeof buf, 1, 0));
}

TEST(SocketTest, DisconnectedSocketRefusesIo) {
    char buf[4] = "abc";
    socks fresh;
    EXPECT_EQ(tavik::sErrDisconnected, fresh.send(buf, 0));
    EXPECT_EQ(tavik::sErrDisconnected, fresh.recv(buf, sizeof buf, 0, 0));
    EXPECT_EQ(0, fresh.waitForRead(0, 0));

    LoopbackPort server(true);
    socks s;
    ASSERT_EQ(1, s.connect(nullptr, server.port));
    s.disconnect();
    EXPECT_FALSE(s.connected);
    EXPECT_EQ(0, s._sock.load());
    EXPECT_EQ(tavik::sErrDisconnected, s.send(buf, 0));
    EXPECT_EQ(tavik::sErrDisconnected, s.recv(buf, sizeof buf, 0, 0));
    EXPECT_EQ(0, s.waitForRead(0, 0));
}

TEST(SocketTest, ConnectsByNameAndWithTimeLimit) {
    LoopbackPort server(true);
    socks byName;
    EXPECT_EQ(1, byName.connect("localhost", server.port));
    EXPECT_EQ(htonl(INADDR_LOOPBACK), byName.addr.sin_addr.s_addr);

    socks timed;
    EXPECT_EQ(1, timed.connect("127.0.0.1", server.port, 0, 500000));
    EXPECT_TRUE(timed.connected);
    // The time-limited connect leaves an ordinary blocking socket behind.
    EXPECT_EQ(0, fcntl(timed._sock.load(), F_GETFL) & O_NONBLOCK);
}

TEST(SocketTest, FailedConnectsLeakNoDescriptor) {
    LoopbackPort refused(false);
    LoopbackPort server(true);
    int before = openDescriptors();
    {
        socks s;
        for (int i = 0; i < 3; i++) {
            EXPECT_EQ(0, s.connect("127.0.0.1", refused.port));
            EXPECT_FALSE(s.connected);
        }
        s.disconnect();
        EXPECT_EQ(before, openDescriptors());

        // Connecting an object that is still connected closes that connection and fails.
        ASSERT_EQ(1, s.connect(nullptr, server.port));
        int peer = server.accept();
        EXPECT_EQ(0, s.connect(nullptr, server.port));
        EXPECT_FALSE(s.connected);
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
        if (s.send("ping", 0) == -1) {
            failures++;
        }
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
    double waited = 0;
    std::thread reader([&] {
        char buf[8];
        Clock::time_point start = Clock::now();
        result = s.recv(buf, sizeof buf, 10, 0);
        waited = secondsSince(start);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    s.disconnect();
    reader.join();
    EXPECT_LE(result, 0);
    EXPECT_LT(waited, 5.0);
    EXPECT_EQ(0, s._sock.load());
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
    const rlim_t needed = FD_SETSIZE + 64;
    if (lim.rlim_cur < needed) {
        lim.rlim_cur = lim.rlim_max < needed ? lim.rlim_max : needed;
        setrlimit(RLIMIT_NOFILE, &lim);
    }
    if (lim.rlim_cur < needed) {
        GTEST_SKIP() << "descriptor limit too low";
    }
    LoopbackPort server(true);
    std::vector<int> fillers;
    while (true) {
        int fd = dup(server.fd);
        if (fd < 0 || fd >= FD_SETSIZE + 8) {
            if (fd >= 0) {
                close(fd);
            }
            break;
        }
        fillers.push_back(fd);
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
