#include "tests/support/hostile_run.h"

#include <dirent.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "tools/pushserver/push_server.h"

namespace hoxen_test {

namespace {

const long kRssSlackKib = 256;

long status_field(const std::string& status, const std::string& name) {
    size_t at = status.find("\n" + name + ":");
    return at == std::string::npos ? -1 : atol(status.c_str() + at + name.size() + 2);
}

int entries_in(const std::string& dir) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr)
        return -1;
    int count = 0;
    while (dirent* e = readdir(d)) {
        if (e->d_name[0] != '.')
            ++count;
    }
    closedir(d);
    return count;
}

}  // namespace

Footprint footprint_of(pid_t pid) {
    const std::string proc = "/proc/" + std::to_string(pid);
    Footprint f;
    f.fds = entries_in(proc + "/fd");
    std::string status = read_file(proc + "/status");
    f.rssKib = status_field(status, "VmRSS");
    f.threads = static_cast<int>(status_field(status, "Threads"));
    std::istringstream stat(read_file(proc + "/stat"));
    stat.ignore(1 << 20, ')');  // the process name may hold blanks
    std::string field;
    long utime = 0, stime = 0;
    for (int i = 3; i <= 15 && stat >> field; ++i) {
        if (i == 14)
            utime = atol(field.c_str());
        if (i == 15)
            stime = atol(field.c_str());
    }
    f.cpuTicks = utime + stime;
    return f;
}

std::string describe(const Footprint& f) {
    return "fds " + std::to_string(f.fds) + ", rss " + std::to_string(f.rssKib) + " KiB, threads " +
           std::to_string(f.threads) + ", cpu " + std::to_string(f.cpuTicks) + " ticks";
}

// True under AddressSanitizer or ThreadSanitizer, whose quarantine and shadow memory grow
// resident memory on their own.
static bool sanitizer_build() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
    return true;
#else
    return false;
#endif
#else
    return false;
#endif
}

HostileRun::HostileRun(const std::string& mountDir) : ConnectedDaemon(mountDir) {}

bool HostileRun::message(size_t conn, const std::string& text, const std::string& printed) {
    _expected.push_back(printed.empty() ? std::string(text.c_str()) : printed);
    return server.sendFrame(conn, "#1:" + text);
}

bool HostileRun::handshake(size_t conn, double seconds) {
    return server.waitForHandshake(conn, std::chrono::milliseconds(long(seconds * 1000)));
}

void HostileRun::expect_all_delivered(double seconds) {
    const std::string prefix = "Recevied Msg: ";
    const int expected = static_cast<int>(_expected.size());
    bool done = wait_until(
        [&] {
            return count_of(daemon->output(), prefix) >= expected &&
                   count_of(read_file(kCheckerRecord), "m\n") >= expected;
        },
        seconds);
    EXPECT_TRUE(done) << count_of(daemon->output(), prefix) << " printed, "
                      << count_of(read_file(kCheckerRecord), "m\n") << " checks of " << expected;
    // Checkers still starting would show late.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const std::string& out = daemon->output();
    EXPECT_EQ(count_of(out, prefix), expected);
    EXPECT_EQ(count_of(read_file(kCheckerRecord), "m\n"), expected);
    for (const std::string& text : _expected)
        EXPECT_EQ(count_of(out, prefix + text + "\r\n"), 1) << text.substr(0, 60);
}

Footprint HostileRun::footprint() {
    Footprint least = footprint_of(daemon->pid());
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        Footprint f = footprint_of(daemon->pid());
        if (f.threads < least.threads)
            least = f;
    }
    return least;
}

void HostileRun::expect_footprint_kept(const Footprint& before) {
    Footprint now;
    wait_until(
        [&] {
            now = footprint();
            return now.threads <= before.threads && now.fds <= before.fds + 1;
        },
        5);
    printf("footprint: %s -> %s\n", describe(before).c_str(), describe(now).c_str());
    EXPECT_LE(now.threads, before.threads) << describe(before) << " -> " << describe(now);
    EXPECT_LE(std::abs(now.fds - before.fds), 1) << describe(before) << " -> " << describe(now);
    if (!sanitizer_build()) {
        EXPECT_LE(now.rssKib - before.rssKib, kRssSlackKib)
            << describe(before) << " -> " << describe(now);
    }
    EXPECT_TRUE(daemon->running());
}

}  // namespace hoxen_test
