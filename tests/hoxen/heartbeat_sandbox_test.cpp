// The real daemon lives exactly as long as the quillo FUSE mount.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <string>

#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

TEST(Heartbeat, DaemonKillsItselfWithinAPauseOfTheUnmount) {
    start_scenario(true);
    ConnectedDaemon run("/tmp/heartbeat-fuse/mnt");
    Child& daemon = *run.daemon;
    run.server.sendFrame(0, "#1:before");
    sleep(5);
    ASSERT_TRUE(daemon.running());

    run.mount.unmount();
    auto unmounted = std::chrono::steady_clock::now();
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(10, &status));
    EXPECT_LT(std::chrono::steady_clock::now() - unmounted, std::chrono::seconds(7));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    // Standard output is a pipe here: what was printed survives the kill -9.
    EXPECT_EQ(daemon.output(), "Recevied Msg: before\r\n");
    std::string text = read_file(daily_log_path());
    const size_t crit = text.find("] : [CRIT] quillo process is stopped, kill all process! \r\n");
    ASSERT_NE(crit, std::string::npos) << text;
    EXPECT_GT(text.find("] : [INFO] hoxen(pid=" + std::to_string(daemon.pid()) +
                        ") is stopped !\r\n \r\n"),
              crit)
        << text;
    EXPECT_EQ(text.find("fuse umount"), std::string::npos) << text;
}

TEST(Heartbeat, MountThatOnlyMentionsQuilloKeepsNothingAliveAndIsUnmounted) {
    start_scenario(true);
    const std::string dir = "/tmp/heartbeat-plain/mnt";
    ASSERT_EQ(shell("mkdir -p " + dir + " && mount -t tmpfs quillo " + dir), 0);
    pushserver::PushServer server;
    ASSERT_TRUE(server.listen());
    Child daemon(daemon_command({"127.0.0.1", std::to_string(server.port()), "BOX", "10"}));
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(15, &status)) << daemon.output();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_TRUE(wait_until([&] { return !is_mount_point(dir); }, 5));
    EXPECT_NE(
        read_file(daily_log_path()).find("] : [INFO] fuse umount(" + dir + ") is stopped ! \r\n"),
        std::string::npos);
}
