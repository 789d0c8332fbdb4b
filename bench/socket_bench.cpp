// Cost of the socket's send and receive paths (locks, readiness wait, one system call each)
// over a loopback connection whose peer echoes every byte.
#include "tavik/tk_socket.h"

#include <benchmark/benchmark.h>

#include <string>
#include <thread>

namespace {

// A connected socks and an echoing peer thread on 127.0.0.1.
struct EchoPair {
    EchoPair() {
        int listener = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a = {};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        bind(listener, reinterpret_cast<sockaddr*>(&a), len);
        getsockname(listener, reinterpret_cast<sockaddr*>(&a), &len);
        listen(listener, 1);
        client.connect(nullptr, ntohs(a.sin_port));
        peer = accept(listener, nullptr, nullptr);
        close(listener);
        echo = std::thread([this] {
            char buf[4096];
            ssize_t n;
            while ((n = ::recv(peer, buf, sizeof buf, 0)) > 0) {
                ::send(peer, buf, static_cast<size_t>(n), MSG_NOSIGNAL);
            }
        });
    }
    ~EchoPair() {
        client.disconnect();
        shutdown(peer, SHUT_RDWR);
        echo.join();
        close(peer);
    }

    tavik::socks client;
    int peer;
    std::thread echo;
};

void BM_SendRecvRoundTrip(benchmark::State& state) {
    EchoPair pair;
    const size_t size = static_cast<size_t>(state.range(0));
    std::string out(size, 'x');
    std::string in(size, '\0');
    for (auto _ : state) {
        pair.client.send(out.c_str(), size);
        for (size_t got = 0; got < size;) {
            ssize_t n = pair.client.recv(&in[got], static_cast<unsigned int>(size - got), 1, 0);
            if (n <= 0) {
                state.SkipWithError("connection lost");
                return;
            }
            got += static_cast<size_t>(n);
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}
BENCHMARK(BM_SendRecvRoundTrip)->Arg(16)->Arg(1024)->Arg(16384);

void BM_WaitForReadNothingPending(benchmark::State& state) {
    EchoPair pair;
    for (auto _ : state) {
        benchmark::DoNotOptimize(pair.client.waitForRead(0, 0));
    }
}
BENCHMARK(BM_WaitForReadNothingPending);

}  // namespace

BENCHMARK_MAIN();
