// The real daemon lives exactly as long as the quillo FUSE mount.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <string>

#include "tests/support/daemon_harness.h"
#include "tools/pushserver/push_server.h"

using namespace hoxen_test;
using pushserver::PushServer;
using std::chrono::seconds;

TEST(Heartbeat, DaemonKillsItselfWithinAPauseOfTheUnmount) {
    start_scenario(true);
    QuilloMount mount("/tmp/heartbeat-fuse/mnt");
    PushServer server;
    ASSERT_TRUE(server.listen());
    Child daemon(daemon_command({"127.0.0.1", std::to_string(server.port()), "BOX", "10"}));
    ASSERT_TRUE(server.waitForHandshake(0, seconds(10))) << daemon.output();
    server.sendFrame(0, "#1:before");
    sleep(5);
    ASSERT_TRUE(daemon.running());

    mount.unmount();
    auto unmounted = std::chrono::steady_clock::now();
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(10, &status));
    EXPECT_LT(std::chrono::steady_clock::now() - unmounted, seconds(6));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_EQ(daemon.output(), "Recevied Msg: before\r\n");
    std::string text = read_file(daily_log_path());
    const std::string crit = "] : [CRIT] quillo process is stopped, kill all process! \r\n";
    const std::string info =
        "] : [INFO] hoxen(pid=" + std::to_string(daemon.pid()) + ") is stopped !\r\n \r\n";
    ASSERT_NE(text.find(crit), std::string::npos) << text;
    EXPECT_GT(text.find(info), text.find(crit)) << text;
    EXPECT_EQ(text.find("fuse umount"), std::string::npos) << text;
}

TEST(Heartbeat, MountThatOnlyMentionsQuilloKeepsNothingAliveAndIsUnmounted) {
    start_scenario(true);
    const std::string dir = "/tmp/heartbeat-plain/mnt";
    ASSERT_EQ(shell("mkdir -p " + dir + " && mount -t tmpfs quillo " + dir), 0);
    PushServer server;
    ASSERT_TRUE(server.listen());
    Child daemon(daemon_command({"127.0.0.1", std::to_string(server.port()), "BOX", "10"}));
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(15, &status)) << daemon.output();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_TRUE(wait_until([&] { return !is_mount_point(dir); }, 5));
    std::string text = read_file(daily_log_path());
    EXPECT_NE(text.find("] : [INFO] fuse umount(" + dir + ") is stopped ! \r\n"), std::string::npos)
        << text;
}
