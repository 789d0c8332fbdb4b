// Footprint of the daemon binary, run by bench/footprint.sh inside tools/sandbox: CPU share
// and resident memory over an idle connection, then a burst of messages counted at the
// integrity checker. Prints the figures; not a Google Benchmark, it has its own main.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>

#include "tests/support/daemon_harness.h"
#include "tools/pushserver/push_server.h"

using namespace hoxen_test;

namespace {

// User plus system CPU time of `pid`, in clock ticks.
long cpu_ticks(pid_t pid) {
    std::istringstream stat(read_file("/proc/" + std::to_string(pid) + "/stat"));
    std::string field;
    long utime = 0, stime = 0;
    stat.ignore(1 << 20, ')');  // the process name may hold blanks
    for (int i = 3; i <= 15 && stat >> field; ++i) {
        if (i == 14) utime = atol(field.c_str());
        if (i == 15) stime = atol(field.c_str());
    }
    return utime + stime;
}

long rss_kib(pid_t pid) {
    std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
    size_t at = status.find("VmRSS:");
    return at == std::string::npos ? -1 : atol(status.c_str() + at + 6);
}

}  // namespace

int main(int argc, char** argv) {
    const int idleSeconds = argc > 1 ? atoi(argv[1]) : 60;
    const int burst = argc > 2 ? atoi(argv[2]) : 2000;
    start_scenario(true);
    QuilloMount mount("/tmp/footprint/mnt");
    pushserver::PushServer server;
    if (!server.listen()) return 1;
    Child daemon(daemon_command({"127.0.0.1", std::to_string(server.port()), "BOX", "10"}));
    if (!server.waitForHandshake(0, std::chrono::seconds(10))) return 1;

    const long ticksPerSecond = sysconf(_SC_CLK_TCK);
    long startTicks = cpu_ticks(daemon.pid());
    long rssFirst = rss_kib(daemon.pid()), rssMax = rssFirst;
    auto start = std::chrono::steady_clock::now();
    for (int s = 0; s < idleSeconds; ++s) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        rssMax = std::max(rssMax, rss_kib(daemon.pid()));
    }
    double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    double cpu = double(cpu_ticks(daemon.pid()) - startTicks) / ticksPerSecond;
    long rssLast = rss_kib(daemon.pid());
    printf("idle %.0f s: cpu %.3f s (%.3f %% of one core), rss first %ld KiB, last %ld KiB, max %ld KiB\n",
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
           burst, launches(), took, rss_kib(daemon.pid()),
           daemon.running() ? "running" : "gone");
    return launches() == burst ? 0 : 1;
}
