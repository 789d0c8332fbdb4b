// What a running process holds, read from /proc: the daemon benchmarks' probe.
#ifndef HOXEN_BENCH_PROCESS_FOOTPRINT_H_
#define HOXEN_BENCH_PROCESS_FOOTPRINT_H_

#include <sys/types.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/daemon_harness.h"

namespace hoxen_test {

// Descriptors, resident memory, threads, user + system CPU clock ticks; -1 where unreadable.
struct Footprint {
    int fds = -1;
    long rssKib = -1;
    int threads = -1;
    long cpuTicks = -1;
};

inline Footprint footprint_of(pid_t pid) {
    const std::string proc = "/proc/" + std::to_string(pid);
    Footprint f;
    f.fds = descriptor_count(pid);
    const std::string status = read_file(proc + "/status");
    auto field = [&](const char* name) {
        size_t at = status.find(std::string("\n") + name + ":");
        return at == std::string::npos ? -1 : atol(status.c_str() + at + strlen(name) + 2);
    };
    f.rssKib = field("VmRSS");
    f.threads = int(field("Threads"));
    // The fields after the name, which may hold blanks: state, 10 numbers, utime, stime.
    const std::string stat = read_file(proc + "/stat");
    long utime = 0, stime = 0;
    if (sscanf(stat.c_str() + stat.rfind(')') + 1, " %*c%*d%*d%*d%*d%*d%*u%*u%*u%*u%*u%ld%ld",
               &utime, &stime) == 2)
        f.cpuTicks = utime + stime;
    return f;
}

}  // namespace hoxen_test

#endif  // HOXEN_BENCH_PROCESS_FOOTPRINT_H_
