// Helpers for running the daemon against a push server that misbehaves on purpose: the
// daemon's resource footprint read from /proc, and a run that counts the message frames the
// server completed so that a test can check each was printed and started the checker once.
// Meant for one test thread, like the rest of the harness.
#ifndef HOXEN_TESTS_SUPPORT_HOSTILE_RUN_H
#define HOXEN_TESTS_SUPPORT_HOSTILE_RUN_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/daemon_harness.h"

namespace hoxen_test {

// What a process holds, from /proc/PID: open descriptors, resident memory, threads and
// user plus system CPU time in clock ticks.
struct Footprint {
    int fds = -1;
    long rssKib = -1;
    int threads = -1;
    long cpuTicks = -1;
};
Footprint footprint_of(pid_t pid);
std::string describe(const Footprint& f);

// The daemon connected to its own push server (see ConnectedDaemon), with a count of the
// complete message frames sent to it.
class HostileRun : public ConnectedDaemon {
public:
    explicit HostileRun(const std::string& mountDir);

    // Sends the complete frame of body "#1:" + text on connection conn and expects the
    // daemon to print `printed` (text up to its first NUL byte when empty) once.
    bool message(size_t conn, const std::string& text, const std::string& printed = "");
    // Expects a message sent otherwise to be printed as `printed`, once.
    void expect_printed(const std::string& printed) { _expected.push_back(printed); }
    // Waits (at most `seconds`) until every expected message was printed and started the
    // checker; then checks that each was printed exactly once and nothing else was.
    void expect_all_delivered(double seconds);
    // Waits for the daemon's handshake on connection conn.
    bool handshake(size_t conn, double seconds);
    // The daemon's footprint with the fewest threads seen over half a second, so that a
    // receive thread still on its way out is not counted.
    Footprint footprint();
    // Checks that the daemon holds what it held at `before`: descriptors within one, the
    // no more threads once it has settled, and (outside sanitizer builds) resident memory
    // within 256 KiB.
    void expect_footprint_kept(const Footprint& before);

private:
    std::vector<std::string> _expected;
};

}  // namespace hoxen_test

#endif  // HOXEN_TESTS_SUPPORT_HOSTILE_RUN_H
