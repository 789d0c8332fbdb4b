// Footprint of the daemon binary, run by bench/footprint.sh inside tools/sandbox: CPU share
// and resident memory over an idle connection, then a burst of messages counted at the
// integrity checker. Prints the figures; not a Google Benchmark, it has its own main.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "bench/process_footprint.h"
#include "tools/pushserver/push_server.h"

using namespace hoxen_test;

int main(int argc, char** argv) {
    const int idleSeconds = argc > 1 ? atoi(argv[1]) : 60;
    const int burst = argc > 2 ? atoi(argv[2]) : 2000;
    start_scenario(true);
    ConnectedDaemon run("/tmp/footprint/mnt");
    pushserver::PushServer& server = run.server;
    Child& daemon = *run.daemon;
    if (!daemon.running() || server.connectionCount() != 1)
        return 1;

    // One heartbeat pause first: its first mount listing touches pages once for good.
    std::this_thread::sleep_for(std::chrono::seconds(5));
    const long ticksPerSecond = sysconf(_SC_CLK_TCK);
    long startTicks = footprint_of(daemon.pid()).cpuTicks;
    long rssFirst = footprint_of(daemon.pid()).rssKib, rssMax = rssFirst;
    auto start = std::chrono::steady_clock::now();
    for (int s = 0; s < idleSeconds; ++s) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        rssMax = std::max(rssMax, footprint_of(daemon.pid()).rssKib);
    }
    double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    double cpu = double(footprint_of(daemon.pid()).cpuTicks - startTicks) / ticksPerSecond;
    long rssLast = footprint_of(daemon.pid()).rssKib;
    printf(
        "idle %.0f s: cpu %.3f s (%.3f %% of one core), rss first %ld KiB, last %ld KiB, max %ld "
        "KiB\n",
        wall, cpu, 100 * cpu / wall, rssFirst, rssLast, rssMax);

    auto burstStart = std::chrono::steady_clock::now();
    std::string frames;
    for (int i = 0; i < burst; ++i) frames += pushserver::frame("#1:burst " + std::to_string(i));
    server.sendRaw(0, frames);
    auto launches = [] { return count_of(read_file(kCheckerRecord), "m\n"); };
    wait_until([&] { return launches() >= burst; }, 300);
    sleep(1);  // late launches would still show
    double took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - burstStart).count();
    printf("burst of %d messages: %d checker launches, %.1f s, rss after %ld KiB, daemon %s\n",
           burst, launches(), took, footprint_of(daemon.pid()).rssKib,
           daemon.running() ? "running" : "gone");
    return launches() == burst ? 0 : 1;
}
