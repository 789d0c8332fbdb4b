// The real daemon's start-up: usage, banner, argument bounds and the first connection.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <string>

#include "tests/support/daemon_harness.h"
#include "tools/pushserver/push_server.h"

using namespace hoxen_test;
using pushserver::Handshake;
using pushserver::PushServer;
using std::chrono::seconds;

TEST(Startup, FewerThanThreeArgumentsPrintTheUsageLineAndLogNothing) {
    start_scenario(true);
    const std::vector<std::vector<std::string>> cases = {{}, {"127.0.0.1"}, {"127.0.0.1", "1"}};
    for (const auto& args : cases) {
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
    QuilloMount mount("/tmp/startup-banner/mnt");
    PushServer server;
    ASSERT_TRUE(server.listen());
    const std::string domain(300, 'd');
    Child daemon(daemon_command({"127.0.0.1", std::to_string(server.port()), domain}));
    Handshake hello;
    ASSERT_TRUE(server.waitForHandshake(0, seconds(10), &hello)) << daemon.output();
    EXPECT_EQ(hello.domain, std::string(127, 'd'));
    EXPECT_EQ(hello.userId, "");
    EXPECT_EQ(hello.loginParam, "vintrago");

    const std::string rule = " ============================================";
    std::vector<std::string> messages = log_messages();
    ASSERT_EQ(messages.size(), 4u) << read_file(daily_log_path());
    EXPECT_EQ(messages[0], rule);
    EXPECT_EQ(messages[1], " ============ HOXEN is Started!! ============");
    EXPECT_EQ(messages[2], rule);
    // The argument line is cut to its buffer, then to the log line's, which keeps its end.
    const std::string args = "  --- 127.0.0.1 " + std::to_string(server.port()) + " ddd";
    EXPECT_EQ(messages[3].substr(0, args.size()), args);
    EXPECT_EQ(messages[3].size(), 255u - 24 - 3);
    EXPECT_TRUE(daemon.running());
}

TEST(Startup, UnreachableServerIsTriedEverySecondAndTheHeartbeatWaitsForIt) {
    start_scenario(false);
    PushServer server;
    ASSERT_TRUE(server.listen());
    const int port = server.port();
    server.stopListening();
    Child daemon(daemon_command({"127.0.0.1", std::to_string(port), "BOX", "10"}));
    sleep(3);
    EXPECT_GE(count_of(daemon.output(), "Can't connect with the server\r\n"), 2);
    EXPECT_LE(count_of(daemon.output(), "Can't connect with the server\r\n"), 4);
    // No quillo mount at all: a running heartbeat would already have ended the daemon.
    EXPECT_TRUE(daemon.running());

    ASSERT_TRUE(server.listen(port));
    ASSERT_TRUE(server.waitForHandshake(0, seconds(5)));
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(10, &status));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_EQ(daemon.output().find("Can't connect with the server\r\n"), 0u);
    EXPECT_FALSE(file_exists(daily_log_path()));
}
