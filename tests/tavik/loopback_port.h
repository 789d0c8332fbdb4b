// Helpers of the socket tests: a TCP port on 127.0.0.1 and a count of open descriptors.
#ifndef TESTS_TAVIK_LOOPBACK_PORT_H
#define TESTS_TAVIK_LOOPBACK_PORT_H

#include <arpa/inet.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

// A socket bound to 127.0.0.1 on a free port; listening or not (then connects are refused).
struct LoopbackPort {
    explicit LoopbackPort(bool listening) : fd(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in a = {};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        EXPECT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&a), len));
        EXPECT_EQ(0, getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len));
        port = ntohs(a.sin_port);
        EXPECT_EQ(0, listening ? listen(fd, 8) : 0);
    }
    ~LoopbackPort() { close(fd); }
    int accept() { return ::accept(fd, nullptr, nullptr); }  // the caller closes it

    int fd;
    unsigned int port;
};

inline int openDescriptors() {
    std::filesystem::directory_iterator fds("/proc/self/fd");
    return static_cast<int>(std::distance(begin(fds), end(fds)));
}

#endif  // TESTS_TAVIK_LOOPBACK_PORT_H
