// The real daemon against connections that go wrong, one fault after another: a server that
// never speaks, resets inside a body, a port that refuses for a while. A lost connection is
// taken up again at once under a new identifier; refused attempts are warned and repeated once
// a second; nothing complete is lost and nothing held grows once each fault has settled.
// Start-up faults: resets before the first handshake, closed standard descriptors.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/support/hostile_run.h"

using namespace hoxen_test;
using std::chrono::seconds;

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int warnings() {
    return count_of(read_file(daily_log_path()), "] : [WARN] disconnected \r\n");
}

}  // namespace

TEST(HostileConnection, SilenceResetsAndRefusalsLoseNothingAndKeepThePace) {
    start_scenario(true);
    HostileRun run("/tmp/hostile-connection/mnt");
    pushserver::PushServer& server = run.server;
    ASSERT_TRUE(run.message(0, "before silence"));
    run.expect_all_delivered(5);
    Footprint settled = run.footprint();
    const auto start = std::chrono::steady_clock::now();
    sleep(6);
    const double wall = seconds_since(start);
    const Footprint after = run.footprint();
    // One read wait a second and a mount listing every four: far below a busy loop.
    EXPECT_LT(double(after.cpuTicks - settled.cpuTicks) / sysconf(_SC_CLK_TCK), wall / 4);
    EXPECT_FALSE(server.peerClosed(0));
    ASSERT_TRUE(run.message(0, "after silence"));
    run.expect_all_delivered(3);
    run.expect_footprint_kept(settled);

    // A reset inside a body loses that frame only.
    std::set<std::string> identifiers{run.hello.identifier};
    size_t conn = 0;
    for (; conn < 4; ++conn) {
        ASSERT_TRUE(server.sendRaw(conn, "0020#1:cut short"));
        usleep(100 * 1000);
        ASSERT_TRUE(server.reset(conn));
        const auto lost = std::chrono::steady_clock::now();
        pushserver::Handshake next;
        ASSERT_TRUE(server.waitForHandshake(conn + 1, seconds(5), &next));
        // A reconnection that succeeds is made without the one-second pause.
        EXPECT_LT(seconds_since(lost), 0.9);
        identifiers.insert(next.identifier);
        ASSERT_TRUE(run.message(conn + 1, "after reset " + std::to_string(conn)));
        run.expect_all_delivered(5);
        if (conn == 0)
            settled = run.footprint();
    }
    EXPECT_EQ(identifiers.size(), conn + 1);
    EXPECT_EQ(warnings(), 0);
    run.expect_footprint_kept(settled);

    // Each failed attempt on a refusing port is warned once, then paused a second.
    const int port = server.port(), refusedSeconds = 4;
    for (int round = 0; round < 2; ++round, ++conn) {
        const int warnedBefore = warnings();
        server.stopListening();
        ASSERT_TRUE(server.close(conn));
        sleep(refusedSeconds);
        ASSERT_TRUE(server.listen(port));
        const int warned = warnings() - warnedBefore;
        EXPECT_GE(warned, refusedSeconds - 1);
        EXPECT_LE(warned, refusedSeconds + 1);
        ASSERT_TRUE(server.waitForHandshake(conn + 1, seconds(3)));
        ASSERT_TRUE(run.message(conn + 1, "after refusal " + std::to_string(round)));
        run.expect_all_delivered(5);
        if (round == 0)
            settled = run.footprint();
    }
    EXPECT_EQ(server.connectionCount(), conn + 1);
    EXPECT_EQ(run.daemon->output().find("Can't connect"), std::string::npos);
    run.expect_footprint_kept(settled);
}

// strace holds the daemon's main thread half a second on entry to each send, and the server
// resets the first three connections meanwhile: each failed handshake is a failed start-up
// attempt, a line and a second's pause, until the server lets the handshake through.
TEST(HostileConnection, ResetsBeforeTheFirstHandshakeAreRetriedEverySecond) {
    start_scenario(false);
    pushserver::PushServer server;
    ASSERT_TRUE(server.listen());
    Child daemon({"/usr/bin/strace", "-qq", "-o", "/dev/null", "-e", "trace=sendto", "-e",
                  "inject=sendto:delay_enter=500000", kHoxen, "127.0.0.1",
                  std::to_string(server.port()), "BOX", "10"});
    const auto start = std::chrono::steady_clock::now();
    std::vector<double> accepted;
    for (size_t conn = 0; conn < 3; ++conn) {
        ASSERT_TRUE(server.waitForConnections(conn + 1, seconds(5))) << daemon.output();
        accepted.push_back(seconds_since(start));
        ASSERT_TRUE(server.reset(conn));
    }
    ASSERT_TRUE(server.waitForHandshake(3, seconds(5)));
    for (size_t conn = 1; conn < 3; ++conn) {
        EXPECT_EQ(server.received(conn - 1), "");
        const double gap = accepted[conn] - accepted[conn - 1];  // the pause and the hold
        EXPECT_TRUE(gap > 1.4 && gap < 2.5) << gap;
    }
    // No quillo mount: the heartbeat, started once connected, ends the daemon.
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(10, &status));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_EQ(count_of(daemon.output(), "Can't connect with the server\r\n"), 3) << daemon.output();
}

// A closed standard descriptor is taken by /dev/null before the daemon's socket can take it:
// the server receives the handshake and nothing else, and the daemon works as ever.
TEST(HostileConnection, ClosedStandardDescriptorsNeverReachTheServer) {
    for (int fd : {STDOUT_FILENO, STDIN_FILENO, STDERR_FILENO}) {
        start_scenario(false);
        ConnectedDaemon run("/tmp/closed" + std::to_string(fd) + "/mnt", {"BOX", "10"}, fd);
        ASSERT_TRUE(run.server.sendFrame(0, "#2:true:ab") && run.server.sendFrame(0, "#1:hi"));
        EXPECT_TRUE(wait_until([] { return read_file(kCheckerRecord) == "m\n"; }, 5)) << fd;
        const std::string proc = "/proc/" + std::to_string(run.daemon->pid()) + "/fd/";
        EXPECT_EQ(std::filesystem::read_symlink(proc + std::to_string(fd)), "/dev/null") << fd;
        usleep(200 * 1000);
        EXPECT_EQ(run.server.received(0), "BOX:(" + run.hello.identifier + ")10\nvintrago\n\n");
    }
}
