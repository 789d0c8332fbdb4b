// Long run of the daemon binary, run by bench/soak.sh inside tools/sandbox: a push server
// that sends messages at random pauses and, at random intervals, closes or resets the
// connection (sometimes inside a frame). Reports messages sent against printed, checker
// launches, reconnects, and the daemon's descriptors, memory and CPU at the start and the
// end. Not a Google Benchmark, it has its own main; exits non-zero when a message was lost
// or repeated or the daemon is gone.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <thread>

#include "bench/process_footprint.h"
#include "tools/pushserver/push_server.h"

using namespace hoxen_test;
using std::chrono::milliseconds;
using std::chrono::seconds;
using clock_type = std::chrono::steady_clock;

namespace {

void report(const char* when, const Footprint& f, double wall) {
    printf("%-5s fds %d, rss %ld KiB, threads %d, cpu %.2f s", when, f.fds, f.rssKib, f.threads,
           double(f.cpuTicks) / sysconf(_SC_CLK_TCK));
    if (wall > 0)
        printf(" (%.2f %% of one core since start)",
               100.0 * f.cpuTicks / sysconf(_SC_CLK_TCK) / wall);
    printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    const int runSeconds = argc > 1 ? atoi(argv[1]) : 600;
    const unsigned seed = argc > 2 ? unsigned(atol(argv[2])) : unsigned(time(nullptr));
    std::mt19937 random(seed);
    auto uniform = [&](int lo, int hi) {
        return std::uniform_int_distribution<int>(lo, hi)(random);
    };
    setvbuf(stdout, nullptr, _IOLBF, 0);
    printf("soak: %d s, seed %u\n", runSeconds, seed);

    start_scenario(true);
    ConnectedDaemon run("/tmp/soak/mnt");
    pushserver::PushServer& server = run.server;
    Child& daemon = *run.daemon;
    size_t conn = 0;
    int sent = 0, closes = 0, resets = 0, cutFrames = 0;

    auto sendOne = [&] {
        if (server.sendFrame(conn, "#1:soak " + std::to_string(sent)))
            ++sent;
    };
    // Warm-up: a first message and heartbeat pause, so the start figures hold every thread.
    sendOne();
    wait_until([&] { return count_of(daemon.output(), "Recevied Msg: ") == 1; }, 10);
    sleep(5);
    const Footprint first = footprint_of(daemon.pid());
    const long firstCpu = first.cpuTicks;
    report("start", first, 0);

    const auto start = clock_type::now();
    const auto deadline = start + seconds(runSeconds);
    auto nextLoss = start + milliseconds(uniform(2000, 30000));
    while (clock_type::now() < deadline && daemon.running()) {
        // Messages alone or in bursts, at pauses up to half a second.
        for (int n = uniform(0, 9) == 0 ? uniform(2, 40) : 1; n > 0; --n) sendOne();
        std::this_thread::sleep_for(milliseconds(uniform(0, 500)));
        daemon.output();  // keeps the daemon's pipe from filling
        if (clock_type::now() < nextLoss)
            continue;
        nextLoss = clock_type::now() + milliseconds(uniform(2000, 30000));
        switch (uniform(0, 2)) {
            case 0:
                server.close(conn);
                ++closes;
                break;
            case 1:
                server.reset(conn);
                ++resets;
                break;
            default:  // a frame cut short: it was never completed, so it is not counted
                server.sendRaw(conn, pushserver::frame("#1:never completed").substr(0, 12));
                std::this_thread::sleep_for(milliseconds(uniform(0, 300)));
                server.reset(conn);
                ++cutFrames;
        }
        ++conn;
        if (!server.waitForHandshake(conn, seconds(10))) {
            printf("no reconnection after loss %zu\n", conn);
            break;
        }
    }
    const double wall = std::chrono::duration<double>(clock_type::now() - start).count();

    auto launches = [] { return count_of(read_file(kCheckerRecord), "m\n"); };
    wait_until(
        [&] { return count_of(daemon.output(), "Recevied Msg: ") >= sent && launches() >= sent; },
        60);
    sleep(1);  // late launches would still show
    std::map<std::string, int> printed;
    const std::string& out = daemon.output();
    const std::string prefix = "Recevied Msg: ";
    for (size_t at = out.find(prefix); at != std::string::npos; at = out.find(prefix, at + 1)) {
        size_t end = out.find("\r\n", at);
        ++printed[out.substr(at + prefix.size(), end - at - prefix.size())];
    }
    int missing = 0, repeated = 0;
    for (int i = 0; i < sent; ++i) {
        int times =
            printed.count("soak " + std::to_string(i)) ? printed["soak " + std::to_string(i)] : 0;
        missing += times == 0;
        repeated += times > 1;
    }
    Footprint last = footprint_of(daemon.pid());
    printf(
        "ran %.0f s: %d messages sent, %d printed (%d missing, %d repeated), %d checker launches\n",
        wall, sent, count_of(out, prefix), missing, repeated, launches());
    printf(
        "connection losses: %d closes, %d resets, %d resets inside a frame; %zu connections "
        "accepted (%zu reconnects), %d warnings logged\n",
        closes, resets, cutFrames, server.connectionCount(), server.connectionCount() - 1,
        count_of(read_file(daily_log_path()), "[WARN]"));
    report("start", first, 0);
    last.cpuTicks -= firstCpu;
    report("end", last, wall);
    printf("daemon %s\n", daemon.running() ? "running" : "gone");
    bool ok = daemon.running() && missing == 0 && repeated == 0 && launches() == sent &&
              count_of(out, prefix) == sent;
    return ok ? 0 : 1;
}
