// The real daemon from start to end: usage, banner and argument bounds, the first connection,
// its answers to push events (printing, logging, the checker), and the heartbeat that ends it
// by kill -9 once the quillo FUSE mount is gone.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <regex>
#include <string>
#include <thread>

#include "tests/support/daemon_harness.h"

using namespace hoxen_test;
using std::chrono::seconds;

TEST(Daemon, FewerThanThreeArgumentsPrintTheUsageLineAndLogNothing) {
    start_scenario(true);
    for (const std::vector<std::string>& argv :
         {std::vector<std::string>{kHoxen}, {kHoxen, "127.0.0.1"}, {kHoxen, "127.0.0.1", "1"}}) {
        Child daemon(argv);
        int status = -1;
        ASSERT_TRUE(daemon.wait_exit(10, &status));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
        EXPECT_EQ(daemon.output(),
                  "Usage: ./hoxen A.B.C.D port domain device_id"
                  "        -- ./hoxen 192.0.2.10 10099 BOX 10");
    }
    EXPECT_FALSE(file_exists(daily_log_path()));
}

TEST(Daemon, UnreachableServerIsTriedEverySecondAndOnlyAFuseQuilloMountKeepsItUp) {
    start_scenario(false);
    // A mount that only mentions quillo: lazily unmounted at shutdown, keeps nothing alive.
    const std::string dir = "/tmp/plain/mnt";
    ASSERT_EQ(shell("mkdir -p " + dir + " && mount -t tmpfs quillo " + dir), 0);
    pushserver::PushServer server;
    ASSERT_TRUE(server.listen());
    const int port = server.port();
    server.stopListening();
    Child daemon({kHoxen, "127.0.0.1", std::to_string(port), std::string(300, 'd')});
    sleep(3);
    const int tries = count_of(daemon.output(), "Can't connect with the server\r\n");
    EXPECT_TRUE(tries >= 2 && tries <= 4) << tries;
    // A heartbeat already running would have ended the daemon.
    EXPECT_TRUE(daemon.running());

    ASSERT_TRUE(server.listen(port));
    pushserver::Handshake hello;
    ASSERT_TRUE(server.waitForHandshake(0, seconds(5), &hello));
    // Three arguments leave the device id empty; a long one is cut to its field.
    EXPECT_EQ(hello.domain + "|" + hello.userId + "|" + hello.loginParam,
              std::string(127, 'd') + "||vintrago");
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(10, &status));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_TRUE(wait_until([&] { return !is_mount_point(dir); }, 5));
    EXPECT_EQ(daemon.output().find("Can't connect with the server\r\n"), 0u);
    EXPECT_FALSE(file_exists(daily_log_path()));  // no switch file, no log
}

TEST(Daemon, AnswersPushEventsAndKillsItselfWithinAPauseOfTheUnmount) {
    start_scenario(true);
    ConnectedDaemon run("/tmp/daemon/mnt");
    const auto connected = std::chrono::steady_clock::now();
    Child& daemon = *run.daemon;
    EXPECT_EQ(run.hello.domain + "|" + run.hello.userId + "|" + run.hello.loginParam,
              "BOX|10|vintrago");
    for (const char* body : {"#2:true:ab", "#1:hello", "#1:",
                             "#1:$(touch /tmp/pwned1);`touch /tmp/pwned2` %s", "#2:false:xy"}) {
        run.server.sendFrame(0, body);
    }
    ASSERT_TRUE(wait_until([&] { return count_of(daemon.output(), "\r\n") == 5; }, 10));
    EXPECT_TRUE(wait_until([] { return read_file(kCheckerRecord) == "m\nm\nm\n"; }, 5))
        << read_file(kCheckerRecord);
    EXPECT_FALSE(file_exists("/tmp/pwned1") || file_exists("/tmp/pwned2"));

    // The heartbeat looks every 4 s: the daemon outlives one look while the mount is there.
    std::this_thread::sleep_until(connected + seconds(5));
    ASSERT_TRUE(daemon.running());
    run.unmount();
    const auto unmounted = std::chrono::steady_clock::now();
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(10, &status));
    EXPECT_LT(std::chrono::steady_clock::now() - unmounted, seconds(7));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    // Standard output is a pipe here: what was printed survives the kill -9.
    EXPECT_EQ(daemon.output(),
              "Auth: passed, Token:ab\r\n"
              "Recevied Msg: hello\r\n"
              "Recevied Msg: \r\n"
              "Recevied Msg: $(touch /tmp/pwned1);`touch /tmp/pwned2` %s\r\n"
              "Auth: failed, Token:xy\r\n");
    // The whole log, each line "[YYYY-MM-DD hh:mm:ss] : MSG \r\n"; the mount was gone, so
    // no unmount is logged.
    const std::string rule = " ============================================ \r\n";
    const std::string checked = "[INFO] recieve message(manual integrity check) \r\n";
    EXPECT_EQ(std::regex_replace(read_file(daily_log_path()),
                                 std::regex(R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] : )"), ""),
              rule + " ============ HOXEN is Started!! ============ \r\n" + rule +
                  "  --- 127.0.0.1 " + std::to_string(run.server.port()) + " BOX 10 *** \r\n" +
                  "[INFO] auth: passed, token:ab \r\n" + checked + checked + checked +
                  "[INFO] auth: failed, token:xy \r\n" +
                  "[CRIT] quillo process is stopped, kill all process! \r\n" +
                  "[INFO] hoxen(pid=" + std::to_string(daemon.pid()) + ") is stopped !\r\n \r\n");
}
