// Push client speed on loopback: frames per second from the scripted server into a counting
// onReceive, and the latency from the server's send to onReceive beside that of a plain
// loopback ping-pong (a thread blocked in recv) measured in the same run.
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "PushClient/PushClient.h"
#include "tools/pushserver/push_server.h"

using namespace std::chrono_literals;
using steadyClock = std::chrono::steady_clock;

namespace {

// A 40-byte frame: four length digits and a 36-byte body.
const std::string body40 = "#1:" + std::string(33, 'p');

class CountingClient : public PushClient {
public:
    void onReceive(const char*) override { count.fetch_add(1, std::memory_order_release); }
    std::atomic<long> count{0};
};

// One server and one connected client for the whole program; receive threads are detached,
// so the client is never destroyed.
struct loopback {
    loopback() {
        server.listen();
        client->connect("127.0.0.1", server.port(), "BENCH", "1", "bench");
        server.waitForHandshake(0, 5s);
    }
    pushserver::PushServer server;
    CountingClient* client = new CountingClient;
};

loopback& shared() {
    static loopback* it = new loopback;
    return *it;
}

// Spins for the latency runs; naps for the throughput runs, so as not to take the receiving
// thread's core on a small machine.
void waitForCount(const std::atomic<long>& count, long target, bool nap = false) {
    while (count.load(std::memory_order_acquire) < target) {
        if (nap) {
            std::this_thread::sleep_for(200us);
        } else {
            std::this_thread::yield();
        }
    }
}

double medianMicros(std::vector<double>& samples) {
    if (samples.empty()) {
        return 0;
    }
    std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
    return samples[samples.size() / 2];
}

// Sends batches of state.range(0) frames and waits until count has seen each batch.
void pumpFrames(benchmark::State& state, pushserver::PushServer& server,
                const std::atomic<long>& count) {
    const long batch = state.range(0);
    std::string bytes;
    for (long i = 0; i < batch; ++i) {
        bytes += pushserver::frame(body40);
    }
    long target = count.load();
    for (auto _ : state) {
        target += batch;
        server.sendRaw(0, bytes);
        waitForCount(count, target, true);
    }
    state.SetItemsProcessed(state.iterations() * batch);
}

// Times each frame from the server's send until count has seen it; reports the median.
void timeFrames(benchmark::State& state, pushserver::PushServer& server,
                const std::atomic<long>& count) {
    std::vector<double> samples;
    for (auto _ : state) {
        long target = count.load() + 1;
        steadyClock::time_point start = steadyClock::now();
        server.sendFrame(0, body40);
        waitForCount(count, target);
        std::chrono::duration<double> took = steadyClock::now() - start;
        state.SetIterationTime(took.count());
        samples.push_back(took.count() * 1e6);
    }
    state.counters["median_us"] = medianMicros(samples);
}

// A plain loopback connection whose thread counts 40-byte frames. With waitFirst it reads
// as the receive loop does: a wait for readability before each recv of the 4-byte header
// and of the body; without, one blocking recv per frame.
class plainReader {
public:
    explicit plainReader(bool waitFirst) {
        server.listen();
        fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<uint16_t>(server.port()));
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
            server.waitForConnections(1, 5s)) {
            reader = std::thread([this, waitFirst] { readFrames(waitFirst); });
        }
    }
    ~plainReader() {
        server.close(0);
        if (reader.joinable()) {
            reader.join();
        }
        close(fd);
    }

    bool ready() const { return reader.joinable(); }

    pushserver::PushServer server;
    std::atomic<long> count{0};

private:
    void readFrames(bool waitFirst) {
        char buf[64];
        const std::vector<size_t> parts =
            waitFirst ? std::vector<size_t>{4, 36} : std::vector<size_t>{40};
        for (;;) {
            for (size_t want : parts) {
                for (size_t n = 0; n < want;) {
                    pollfd p = {fd, POLLIN, 0};
                    bool readable = !waitFirst || poll(&p, 1, 1000) > 0;
                    ssize_t got = readable ? recv(fd, buf + n, want - n, 0) : 0;
                    if (got <= 0) {
                        return;
                    }
                    n += static_cast<size_t>(got);
                }
            }
            count.fetch_add(1, std::memory_order_release);
        }
    }

    int fd;
    std::thread reader;
};

void BM_FramesIntoOnReceive(benchmark::State& state) {
    loopback& lb = shared();
    pumpFrames(state, lb.server, lb.client->count);
}
BENCHMARK(BM_FramesIntoOnReceive)->Arg(1000)->Arg(10000)->UseRealTime();

// The receive loop's system calls alone, for comparison.
void BM_PlainPollRecvFrames(benchmark::State& state) {
    plainReader plain(true);
    if (!plain.ready()) {
        state.SkipWithError("no loopback connection");
        return;
    }
    pumpFrames(state, plain.server, plain.count);
}
BENCHMARK(BM_PlainPollRecvFrames)->Arg(10000)->UseRealTime();

void BM_SendToOnReceiveLatency(benchmark::State& state) {
    loopback& lb = shared();
    timeFrames(state, lb.server, lb.client->count);
}
BENCHMARK(BM_SendToOnReceiveLatency)->UseManualTime()->Iterations(20000);

// The same path without the push client: a thread blocked in recv takes each frame whole.
void BM_PlainLoopbackLatency(benchmark::State& state) {
    plainReader plain(false);
    if (!plain.ready()) {
        state.SkipWithError("no loopback connection");
        return;
    }
    timeFrames(state, plain.server, plain.count);
}
BENCHMARK(BM_PlainLoopbackLatency)->UseManualTime()->Iterations(20000);

}  // namespace

BENCHMARK_MAIN();
