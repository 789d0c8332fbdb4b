// The real daemon's start-up: usage, banner, argument bounds and the first connection.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <string>

#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

TEST(Startup, FewerThanThreeArgumentsPrintTheUsageLineAndLogNothing) {
    start_scenario(true);
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{}, {"127.0.0.1"}, {"127.0.0.1", "1"}}) {
        Child daemon(daemon_command(args));
        int status = -1;
        ASSERT_TRUE(daemon.wait_exit(10, &status));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        EXPECT_EQ(daemon.output(),
                  "Usage: ./hoxen A.B.C.D port domain device_id"
                  "        -- ./hoxen 192.0.2.10 10099 BOX 10");
    }
    EXPECT_FALSE(file_exists(daily_log_path()));
}

TEST(Startup, ThreeArgumentsLogTheBannerAndLongArgumentsAreCut) {
    start_scenario(true);
    ConnectedDaemon run("/tmp/startup-banner/mnt", {std::string(300, 'd')});
    EXPECT_EQ(run.hello.domain, std::string(127, 'd'));
    EXPECT_EQ(run.hello.userId + "|" + run.hello.loginParam, "|vintrago");

    const std::string rule = " ============================================";
    std::vector<std::string> messages = log_messages();
    ASSERT_EQ(messages.size(), 4u) << read_file(daily_log_path());
    EXPECT_EQ(messages[0], rule);
    EXPECT_EQ(messages[1], " ============ HOXEN is Started!! ============");
    EXPECT_EQ(messages[2], rule);
    // The argument line is cut to its buffer, then to the log line's, which keeps its end.
    const std::string args = "  --- 127.0.0.1 " + std::to_string(run.server.port()) + " ddd";
    EXPECT_EQ(messages[3].substr(0, args.size()), args);
    EXPECT_EQ(messages[3].size(), 255u - 24 - 3);
}

TEST(Startup, UnreachableServerIsTriedEverySecondAndTheHeartbeatWaitsForIt) {
    start_scenario(false);
    pushserver::PushServer server;
    ASSERT_TRUE(server.listen());
    const int port = server.port();
    server.stopListening();
    Child daemon(daemon_command({"127.0.0.1", std::to_string(port), "BOX", "10"}));
    sleep(3);
    const int tries = count_of(daemon.output(), "Can't connect with the server\r\n");
    EXPECT_TRUE(tries >= 2 && tries <= 4) << tries;
    // No quillo mount at all: a running heartbeat would already have ended the daemon.
    EXPECT_TRUE(daemon.running());

    ASSERT_TRUE(server.listen(port));
    ASSERT_TRUE(server.waitForHandshake(0, std::chrono::seconds(5)));
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(10, &status));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_EQ(daemon.output().find("Can't connect with the server\r\n"), 0u);
    EXPECT_FALSE(file_exists(daily_log_path()));
}
