// The daemon against a push server that misbehaves on purpose: its resource footprint from
// /proc, and a count of the complete message frames sent to it, so that a test can check each
// was printed and started the checker once. Meant for one test thread, like the harness.
#ifndef HOXEN_TESTS_SUPPORT_HOSTILE_RUN_H
#define HOXEN_TESTS_SUPPORT_HOSTILE_RUN_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/daemon_harness.h"

namespace hoxen_test {

// What a process holds: descriptors, resident memory, threads, user + system CPU clock ticks.
struct Footprint {
    int fds = -1;
    long rssKib = -1;
    int threads = -1;
    long cpuTicks = -1;
};
Footprint footprint_of(pid_t pid);

class HostileRun : public ConnectedDaemon {
public:
    explicit HostileRun(const std::string& mountDir) : ConnectedDaemon(mountDir) {}

    // Sends the frame "#1:" + text on connection conn, to be printed as `printed` (the text
    // up to its first NUL byte when empty) once.
    bool message(size_t conn, const std::string& text, const std::string& printed = "");
    // Expects a message sent otherwise to be printed as `printed`, once.
    void expect_printed(const std::string& printed) { _expected.push_back(printed); }
    // Waits (at most `seconds`) until every expected message was printed and started the
    // checker; then checks that each was printed exactly once and nothing else was.
    void expect_all_delivered(double seconds);
    // The footprint with the fewest threads seen over half a second (a receive thread still
    // on its way out is not counted).
    Footprint footprint();
    // The daemon runs and holds what it held at `before`: descriptors within one, no more
    // threads once settled, resident memory within 256 KiB (outside sanitizer builds).
    void expect_footprint_kept(const Footprint& before);

private:
    std::vector<std::string> _expected;
};

}  // namespace hoxen_test

#endif  // HOXEN_TESTS_SUPPORT_HOSTILE_RUN_H
