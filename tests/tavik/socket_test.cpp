// The TCP client socket, its read-ahead included, against small peers on 127.0.0.1.
#include "tavik/tk_socket.h"
#include "tests/tavik/loopback_port.h"

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

using tavik::socks;

namespace {

template <class F>
double secondsOf(F f) {
    auto start = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A client connected (to the null host) to a peer on 127.0.0.1. Every descriptor below
// FD_SETSIZE is taken first where the limit allows, so the client's waits run on numbers that
// select() could not watch.
struct SocketTest : ::testing::Test {
    void SetUp() override {
        rlimit lim;
        getrlimit(RLIMIT_NOFILE, &lim);
        lim.rlim_cur = std::min<rlim_t>(lim.rlim_max, FD_SETSIZE + 64);
        if (lim.rlim_cur == FD_SETSIZE + 64 && setrlimit(RLIMIT_NOFILE, &lim) == 0) {
            for (int fd = 0; fd >= 0 && fd < FD_SETSIZE;) fillers.push_back(fd = dup(server.fd));
        }
        ASSERT_EQ(1, s.connect(nullptr, server.port));
        ASSERT_GE(peer = server.accept(), 0);
    }
    void TearDown() override {
        close(peer);  // -1 when the test closed it
        for (int fd : fillers) close(fd);
    }
    std::string take(unsigned int len, long sec = 0, long msec = 0) {
        char buf[64];
        ssize_t n = s.recv(buf, len, sec, msec);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "<" + std::to_string(n) + ">";
    }
    LoopbackPort server{true};
    socks s;
    int peer = -1;
    std::vector<int> fillers;
};

}  // namespace

TEST_F(SocketTest, SendLengthsRecvLimitsAndReadAhead) {
    EXPECT_TRUE(fillers.empty() || s._sock >= FD_SETSIZE);
    char buf[16] = "hello, push";
    EXPECT_EQ(11, s.send(buf, 0));
    EXPECT_EQ(3, s.send(buf, 3));
    std::string got(14, '\0');
    EXPECT_EQ(14, ::recv(peer, &got[0], got.size(), MSG_WAITALL));
    EXPECT_EQ("hello, pushhel", got);
    ASSERT_EQ(3, ::send(peer, "xyz", 3, 0));
    std::vector<char> large(20000);  // a read this large goes straight to the socket
    EXPECT_EQ(3, s.recv(large.data(), large.size(), 1, 0));

    EXPECT_LT(secondsOf([&] { EXPECT_EQ("<-5>", take(sizeof buf)); }), 0.5);
    double took = secondsOf([&] { EXPECT_EQ("<-5>", take(sizeof buf, 0, 1000)); });  // 1 s
    EXPECT_GT(took, 0.9);
    EXPECT_LT(took, 3.0);

    // One read takes all ten bytes, none stay in the kernel; later calls hand them out
    // without waiting (a wait of 0 would give -5), and still after the peer has closed.
    ASSERT_EQ(10, ::send(peer, "0004abcdef", 10, 0));
    EXPECT_EQ("0004", take(4, 1));
    EXPECT_EQ(0, s.recv(buf, 0, 1, 0));  // readable at once, so no wait and no -5
    EXPECT_EQ(-1, ::recv(s._sock.load(), buf, 1, MSG_PEEK | MSG_DONTWAIT));
    EXPECT_LT(secondsOf([&] { EXPECT_GT(s.waitForRead(5, 0), 0); }), 0.5);
    EXPECT_EQ("abc", take(3));
    EXPECT_EQ("def", take(8));
    EXPECT_EQ(0, s.waitForRead(0, 0));
    close(peer);
    peer = -1;
    EXPECT_EQ("<0>", take(8, 1));
    // Sending to the closed peer fails once its reset is back; a raised SIGPIPE would end this
    // program here.
    int failures = 0;
    for (int i = 0; i < 50 && failures < 2; i++) {
        failures += s.send("ping", 0) == -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(2, failures);
}

TEST_F(SocketTest, HostsResolveConnectsLeakNoDescriptorAndPendingTimedConnectsCountAsMade) {
    LoopbackPort refused(false);
    ASSERT_EQ(6, ::send(peer, "abcdef", 6, 0));
    EXPECT_EQ("ab", take(2, 1));
    s.disconnect();
    int before = openDescriptors();
    EXPECT_EQ("<-1>", take(2));
    EXPECT_EQ(tavik::sErrDisconnected, s.send("x", 0));
    EXPECT_EQ(0, s.waitForRead(0, 0));
    EXPECT_EQ(0, s.connect("127.0.0.1", refused.port));
    EXPECT_EQ(0, s.connect("127.0.0.1", refused.port, 1, 0));  // closes the first attempt
    // A name is looked up; a text starting with a digit is an address as it stands (this one
    // is none, and is never looked up); null is 127.0.0.1.
    const struct { const char* host; unsigned int port; int result; } cases[] = {
        {nullptr, server.port, 1}, {"localhost", server.port, 1}, {"127.0.0.1", server.port, 1},
        {"127.0.0.1x", server.port, 0}, {"127.0.0.1", refused.port, 0}};
    for (auto& c : cases) {
        for (bool timed : {false, true}) {
            socks t;
            EXPECT_EQ(c.result, timed ? t.connect(c.host, c.port, 1, 0) : t.connect(c.host, c.port))
                << (c.host ? c.host : "null") << " " << c.port << (timed ? " timed" : "");
            EXPECT_STREQ(c.host, t.serviceAddr.getPtr());  // the host and port last asked for
            EXPECT_EQ(c.port, t.servicePort);
            if (c.result == 1) {
                EXPECT_EQ(htonl(INADDR_LOOPBACK), t.addr.sin_addr.s_addr);
                EXPECT_EQ(htons(c.port), t.addr.sin_port);
                EXPECT_EQ(0, fcntl(t._sock.load(), F_GETFL) & O_NONBLOCK);
                close(server.accept());
            }
        }
    }
    // A new connection starts with nothing buffered; connecting it again closes it and fails.
    ASSERT_EQ(1, s.connect(nullptr, server.port));
    int other = server.accept();
    EXPECT_EQ(0, s.waitForRead(0, 0));
    EXPECT_EQ("<-5>", take(2));
    EXPECT_EQ(0, s.connect(nullptr, server.port));
    char c;
    EXPECT_EQ(0, ::recv(other, &c, 1, 0));
    close(other);
    EXPECT_EQ(before, openDescriptors());

    // A listener with a full queue drops further attempts: one still pending when the limit
    // (in microseconds) passes is reported connected.
    LoopbackPort full(false);
    ASSERT_EQ(0, listen(full.fd, 0));
    socks first, pending;
    ASSERT_EQ(1, first.connect(nullptr, full.port, 1, 0));
    double took = secondsOf([&] { EXPECT_EQ(1, pending.connect(nullptr, full.port, 0, 300000)); });
    EXPECT_GT(took, 0.25);
    EXPECT_LT(took, 1.0);
    EXPECT_TRUE(pending.connected);

    // Out of descriptors, a connect throws rather than use a socket it could not make.
    rlimit lim;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &lim));
    rlimit none = {0, lim.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    EXPECT_THROW(socks().connect(nullptr, full.port), const char*);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &lim));
}

TEST_F(SocketTest, WaitForReadAnswersBesideAReaderAndDisconnectEndsSendsAndWaits) {
    // A receive waits up to 5 s, and a send is blocked on a full buffer (the peer reads
    // nothing until disconnect has returned, or for 3 s).
    std::vector<char> big(64 << 20);
    std::atomic<bool> done(false);
    std::thread sender([&] { EXPECT_LT(s.send(big.data(), big.size()), ssize_t(big.size())); });
    std::thread receiver([this] { take(1, 5); });
    std::thread drain([&] {
        for (int i = 0; i < 300 && !done; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        while (::recv(peer, big.data(), 65536, 0) > 0) {
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_LT(secondsOf([&] { EXPECT_EQ(0, s.waitForRead(0, 0)); }), 0.5);
    EXPECT_LT(secondsOf([&] { s.disconnect(); }), 1.0);
    done = true;
    for (std::thread* t : {&sender, &receiver, &drain}) t->join();

    // Each wait could last 5 s: only disconnect ends it early. The next recv and waitForRead
    // run while disconnect closes the descriptor, and must never use it after the close.
    for (int round = 0; round < 50; round++) {
        auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(1, s.connect(nullptr, server.port));
        close(peer);
        peer = server.accept();
        std::thread reader([this] {
            while (take(8, 5) != "<-1>") {
            }
        });
        std::thread watcher([this] {
            while (s.waitForRead(5, 0) != 0) {
            }
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        s.disconnect();
        reader.join();
        watcher.join();
        ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    }
}
