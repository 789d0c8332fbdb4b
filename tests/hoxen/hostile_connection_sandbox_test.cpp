// The real daemon against connections that go wrong: reset inside a body, a server that
// never speaks, a port that refuses for a while. Lost connections are taken up again at once;
// refused attempts are repeated once a second; nothing complete is lost and nothing held
// grows once the first round has settled.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "tests/support/hostile_run.h"

using namespace hoxen_test;

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int warnings() {
    return count_of(read_file(daily_log_path()), "] : [WARN] disconnected \r\n");
}

}  // namespace

TEST(HostileConnection, ResetInsideABodyLosesThatFrameOnlyAndIsReconnectedAtOnce) {
    start_scenario(true);
    HostileRun run("/tmp/hostile-reset/mnt");
    Footprint settled;
    const size_t rounds = 4;
    for (size_t conn = 0; conn < rounds; ++conn) {
        ASSERT_TRUE(run.message(conn, "before reset " + std::to_string(conn)));
        run.expect_all_delivered(5);
        ASSERT_TRUE(run.server.sendRaw(conn, "0020#1:cut short"));
        usleep(100 * 1000);
        ASSERT_TRUE(run.server.reset(conn));
        auto lost = std::chrono::steady_clock::now();
        ASSERT_TRUE(run.handshake(conn + 1, 5));
        // A reconnection that succeeds is made without the one-second pause.
        EXPECT_LT(seconds_since(lost), 0.9);
        if (conn == 0)
            settled = run.footprint();
    }
    ASSERT_TRUE(run.message(rounds, "after resets"));
    run.expect_all_delivered(5);
    EXPECT_EQ(run.server.connectionCount(), rounds + 1);
    EXPECT_EQ(warnings(), 0);
    run.expect_footprint_kept(settled);
}

TEST(HostileConnection, SilentServerKeepsTheConnectionPolledQuietly) {
    start_scenario(true);
    HostileRun run("/tmp/hostile-silent/mnt");
    ASSERT_TRUE(run.message(0, "before silence"));
    run.expect_all_delivered(5);
    const Footprint before = run.footprint();
    const auto start = std::chrono::steady_clock::now();
    sleep(6);
    const double wall = seconds_since(start);
    const Footprint after = run.footprint();
    // One read wait a second and a mount listing every four: far below a busy loop.
    EXPECT_LT(double(after.cpuTicks - before.cpuTicks) / sysconf(_SC_CLK_TCK), wall / 4)
        << describe(before) << " -> " << describe(after);
    EXPECT_EQ(run.server.connectionCount(), 1u);
    EXPECT_FALSE(run.server.peerClosed(0));
    ASSERT_TRUE(run.message(0, "after silence"));
    run.expect_all_delivered(3);
    run.expect_footprint_kept(before);
}

TEST(HostileConnection, RefusedPortIsTriedOnceASecondUntilItComesBack) {
    start_scenario(true);
    HostileRun run("/tmp/hostile-refused/mnt");
    const int port = run.server.port();
    const int refusedSeconds = 4;
    Footprint settled;
    for (size_t conn = 0; conn < 2; ++conn) {
        const int warnedBefore = warnings();
        run.server.stopListening();
        ASSERT_TRUE(run.server.close(conn));
        sleep(refusedSeconds);
        ASSERT_TRUE(run.server.listen(port));
        // Each failed attempt is warned once, then paused a second.
        const int warned = warnings() - warnedBefore;
        EXPECT_GE(warned, refusedSeconds - 1);
        EXPECT_LE(warned, refusedSeconds + 1);
        ASSERT_TRUE(run.handshake(conn + 1, 3));
        ASSERT_TRUE(run.message(conn + 1, "after refusal " + std::to_string(conn)));
        run.expect_all_delivered(5);
        if (conn == 0)
            settled = run.footprint();
    }
    EXPECT_EQ(run.daemon->output().find("Can't connect"), std::string::npos);
    run.expect_footprint_kept(settled);
}
