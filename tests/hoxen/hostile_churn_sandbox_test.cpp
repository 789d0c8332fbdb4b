// The real daemon against a server that accepts and closes every connection at once, ten
// thousand times in a row: each loss is answered by a new connection without pause, no
// warning is logged, and the daemon ends holding what it held after the warm-up.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

#include "tests/support/hostile_run.h"

using namespace hoxen_test;
using std::chrono::seconds;

TEST(HostileChurn, ServerThatClosesAtOnceIsReconnectedWithoutPauseTenThousandTimes) {
    const size_t cycles = 10000;
    const size_t warmUp = cycles / 10;
    start_scenario(true);
    HostileRun run("/tmp/hostile-churn/mnt");
    Footprint settled;
    auto start = std::chrono::steady_clock::now();
    for (size_t conn = 0; conn < cycles; ++conn) {
        ASSERT_TRUE(run.server.waitForConnections(conn + 1, seconds(5))) << conn;
        run.server.close(conn);
        if (conn + 1 == warmUp) {
            ASSERT_TRUE(run.server.waitForConnections(conn + 2, seconds(5)));
            settled = run.footprint();
            start = std::chrono::steady_clock::now();
        }
    }
    const double perCycle =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() /
        (cycles - warmUp);
    printf("%.2f ms per accept-and-close cycle\n", perCycle * 1000);
    // Far below the one-second pause that only a failed attempt takes.
    EXPECT_LT(perCycle, 0.1);
    ASSERT_TRUE(run.server.waitForHandshake(cycles, seconds(5)));
    ASSERT_TRUE(run.message(cycles, "after churn"));
    run.expect_all_delivered(5);
    EXPECT_EQ(read_file(daily_log_path()).find("[WARN]"), std::string::npos);
    run.expect_footprint_kept(settled);
}
