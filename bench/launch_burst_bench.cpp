// Checker launches under a burst of messages, run by bench/launch_burst.sh inside
// tools/sandbox. Interleaved, REPS times each: the daemon of this build and a second daemon
// binary (the one to compare with) against their own push server and a quillo FUSE mount;
// Debian's mosquitto broker feeding "mosquitto_sub | while read; do CHECKER m & done"; and a
// plain posix_spawn loop of the checker. Each sends or starts MESSAGES launches at once and
// counts until the checker (the tests' fake, a sh script) has run that often. Prints
// launches per second, CPU per launch of the daemon with everything it started, the medians
// and the ratios. Not a Google Benchmark, it has its own main.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/daemon_harness.h"
#include "tools/pushserver/push_server.h"

using namespace hoxen_test;
using clock_type = std::chrono::steady_clock;

namespace {

const char kChecker[] = "/brellium/orvaclient/integrity/integrity";

struct Figures {
    double perSecond = 0;
    double cpuMsPerLaunch = -1;  // -1: not measured
};

double seconds_since(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

int launches() {
    return count_of(read_file(kCheckerRecord), "m\n");
}

// CPU seconds of a live process and of the children it has reaped.
double process_cpu(pid_t pid) {
    const std::string stat = read_file("/proc/" + std::to_string(pid) + "/stat");
    unsigned long utime = 0, stime = 0;
    long cutime = 0, cstime = 0;
    if (stat.empty() ||
        sscanf(stat.c_str() + stat.rfind(')') + 1,
               " %*c%*d%*d%*d%*d%*d%*u%*u%*u%*u%*u%lu%lu%ld%ld", &utime, &stime, &cutime,
               &cstime) != 4)
        return 0;
    return double(utime + stime + cutime + cstime) / sysconf(_SC_CLK_TCK);
}

// The tests' fake checker reads its descriptors with two more programs; here the checker
// only records its run, so that what is measured is the launch rather than the checker.
void cheap_checker() {
    write_file("/brellium/orvaclient/integrity/integrity",
               std::string("#!/bin/sh\necho \"args=$*\" >> ") + kCheckerRecord + "\n", 0755);
}

double rusage_seconds(int who) {
    struct rusage use;
    getrusage(who, &use);
    return use.ru_utime.tv_sec + use.ru_stime.tv_sec +
           (use.ru_utime.tv_usec + use.ru_stime.tv_usec) / 1e6;
}

// We are a subreaper: checkers that the daemon left to init come to us. Reaps those that
// ended (never a child in `known`) and returns the CPU seconds they used.
double reap_orphans(const std::set<pid_t>& known) {
    double cpu = 0;
    for (;;) {
        siginfo_t info = {};
        if (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == 0 ||
            known.count(info.si_pid) != 0)
            return cpu;
        struct rusage use;
        wait4(info.si_pid, nullptr, 0, &use);
        cpu += use.ru_utime.tv_sec + use.ru_stime.tv_sec +
               (use.ru_utime.tv_usec + use.ru_stime.tv_usec) / 1e6;
    }
}

// Waits until `burst` more launches are counted after `base`; false after a minute.
bool wait_for_launches(int base, int burst, const std::function<void()>& meanwhile) {
    return wait_until(
        [&] {
            meanwhile();
            return launches() >= base + burst;
        },
        120);
}

Figures daemon_burst(const std::string& binary, int burst) {
    start_scenario(false);
    cheap_checker();
    std::vector<std::string> launcher;
    if (!binary.empty())  // runs `binary` in place of this build's daemon
        launcher = {"/bin/sh", "-c", "shift; exec \"$0\" \"$@\"", binary};
    ConnectedDaemon run("/tmp/burst/mnt", {"BOX", "10"}, launcher);
    Child& daemon = *run.daemon;
    const std::set<pid_t> known = {daemon.pid(), run.fuse->pid()};
    std::string frames;
    for (int i = 0; i < burst; ++i) frames += pushserver::frame("#1:burst " + std::to_string(i));
    reap_orphans(known);
    const double cpuBefore = process_cpu(daemon.pid());
    double orphans = 0;
    const auto start = clock_type::now();
    run.server.sendRaw(0, frames);
    bool all = wait_for_launches(0, burst, [&] {
        daemon.output();
        orphans += reap_orphans(known);
    });
    Figures f;
    f.perSecond = all ? burst / seconds_since(start) : 0;
    // The last checkers end and are reaped.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    orphans += reap_orphans(known);
    f.cpuMsPerLaunch = 1000 * (process_cpu(daemon.pid()) - cpuBefore + orphans) / burst;
    if (launches() != burst || !daemon.running())
        f.perSecond = 0;
    return f;
}

Figures mosquitto_burst(int burst, int port) {
    start_scenario(false);
    cheap_checker();
    const std::string conf = "/tmp/mosquitto.conf";
    write_file(conf, "listener " + std::to_string(port) + " 127.0.0.1\nallow_anonymous true\nlog_dest none\n");
    Child broker({"/usr/sbin/mosquitto", "-c", conf});
    const std::string host = " -h 127.0.0.1 -p " + std::to_string(port) + " -t burst";
    wait_until([&] { return shell("mosquitto_pub" + host + " -m nobody 2>/dev/null") == 0; }, 10);
    // Its own process group, ended whole: a subscriber left over would count twice.
    Child loop({"/usr/bin/setsid", "/bin/bash", "-c",
                "mosquitto_sub" + host + " | while read l; do " + kChecker + " m & done"});
    // Probes until the subscription is in place.
    int base = 0;
    wait_until(
        [&] {
            shell("mosquitto_pub" + host + " -m probe");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            return (base = launches()) > 0;
        },
        20);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    base = launches();
    const std::string lines = "/tmp/burst.lines";
    std::string text;
    for (int i = 0; i < burst; ++i) text += "burst " + std::to_string(i) + "\n";
    write_file(lines, text);
    reap_orphans({broker.pid(), loop.pid()});
    const auto start = clock_type::now();
    shell("mosquitto_pub" + host + " -l < " + lines);
    Figures f;
    if (wait_for_launches(base, burst, [&] { reap_orphans({broker.pid(), loop.pid()}); }))
        f.perSecond = burst / seconds_since(start);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    if (launches() != base + burst)
        f.perSecond = 0;
    kill(-loop.pid(), SIGKILL);
    return f;
}

Figures spawn_loop(int burst) {
    start_scenario(false);
    cheap_checker();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    char* const argv[] = {const_cast<char*>(kChecker), const_cast<char*>("m"), nullptr};
    const double cpuBefore = rusage_seconds(RUSAGE_SELF) + rusage_seconds(RUSAGE_CHILDREN);
    const auto start = clock_type::now();
    std::vector<pid_t> children;
    for (int i = 0; i < burst; ++i) {
        pid_t pid;
        if (posix_spawn(&pid, kChecker, &actions, nullptr, argv, environ) == 0)
            children.push_back(pid);
    }
    Figures f;
    if (wait_for_launches(0, burst, [] {}))
        f.perSecond = burst / seconds_since(start);
    for (pid_t pid : children) waitpid(pid, nullptr, 0);
    f.cpuMsPerLaunch =
        1000 * (rusage_seconds(RUSAGE_SELF) + rusage_seconds(RUSAGE_CHILDREN) - cpuBefore) / burst;
    posix_spawn_file_actions_destroy(&actions);
    return f;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

std::string load() {
    return read_file("/proc/loadavg").substr(0, 14);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: launch_burst_bench OTHER-HOXEN [messages] [reps] [mqtt-port]\n");
        return 2;
    }
    const std::string other = argv[1];
    const int burst = argc > 2 ? atoi(argv[2]) : 2000;
    const int reps = argc > 3 ? atoi(argv[3]) : 5;
    const int port = argc > 4 ? atoi(argv[4]) : 18830 + getpid() % 1000;
    setvbuf(stdout, nullptr, _IOLBF, 0);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    printf("burst of %d launches, %d repetitions, load average %s\n", burst, reps, load().c_str());
    const std::vector<std::string> names = {"daemon", "other daemon", "mosquitto_sub loop",
                                            "posix_spawn loop"};
    std::map<std::string, std::vector<double>> rate, cpu;
    for (int r = 0; r < reps; ++r) {
        for (const std::string& name : names) {
            Figures f = name == "daemon"               ? daemon_burst("", burst)
                        : name == "other daemon"       ? daemon_burst(other, burst)
                        : name == "mosquitto_sub loop" ? mosquitto_burst(burst, port + r)
                                                       : spawn_loop(burst);
            printf("rep %d %-19s %7.1f launches/s", r + 1, name.c_str(), f.perSecond);
            if (f.cpuMsPerLaunch >= 0)
                printf(", cpu %6.2f ms/launch", f.cpuMsPerLaunch);
            printf("  (load %s)\n", load().c_str());
            rate[name].push_back(f.perSecond);
            if (f.cpuMsPerLaunch >= 0)
                cpu[name].push_back(f.cpuMsPerLaunch);
        }
    }
    printf("\nmedians:\n");
    for (const std::string& name : names) {
        printf("  %-19s %7.1f launches/s", name.c_str(), median(rate[name]));
        if (!cpu[name].empty())
            printf(", cpu %6.2f ms/launch", median(cpu[name]));
        printf("\n");
    }
    const double peer = median(rate["mosquitto_sub loop"]), spawn = median(cpu["posix_spawn loop"]);
    for (const char* name : {"daemon", "other daemon"}) {
        printf("%-13s launches/s vs mosquitto_sub loop %.2f, cpu/launch vs posix_spawn %.2f\n",
               name, median(rate[name]) / peer, median(cpu[name]) / spawn);
    }
    printf("load average at the end %s\n", load().c_str());
    return 0;
}
