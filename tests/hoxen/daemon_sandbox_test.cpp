// The real daemon from start to end: usage, banner, the first connection, its answers to push
// events (printing, starting the checker, logging, in that order), a lost connection, and the
// heartbeat that ends it by kill -9 once the quillo FUSE mount is gone.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

TEST(Daemon, FewerThanThreeArgumentsPrintTheUsageLineAndLogNothing) {
    start_scenario(true);
    Child daemon({kHoxen, "127.0.0.1", "1"});  // fewer still take the same way
    int status = -1;
    ASSERT_TRUE(daemon.wait_exit(10, &status));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(daemon.output(),
              "Usage: ./hoxen A.B.C.D port domain device_id"
              "        -- ./hoxen 192.0.2.10 10099 BOX 10");
    EXPECT_FALSE(file_exists(daily_log_path()));
}

namespace {

// Fills the pipe or FIFO at `path` with '~' through a descriptor of its own, which it returns.
int fill(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_NONBLOCK);
    const std::string junk(4096, '~');
    while (write(fd, junk.data(), junk.size()) > 0) {
    }
    return fd;
}

// `text` without the '~' that fill() wrote.
std::string unfilled(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '~'), text.end());
    return text;
}

}  // namespace

TEST(Daemon, AnswersPushEventsInTurnAndKillsItselfWithinAPauseOfTheUnmount) {
    start_scenario(true, 1);
    for (const char* name : {"mount", "pidof", "umount", "ps", "mkdir"}) fake(name);
    // Standard input and error closed: the daemon takes /dev/null for them, not its socket.
    ConnectedDaemon run("/tmp/daemon/mnt", {"BOX", "10"},
                        {"/bin/sh", "-c", "exec \"$0\" \"$@\" <&- 2>&-"});
    const double connected = now();
    Child& daemon = *run.daemon;
    EXPECT_EQ(run.hello.domain + "|" + run.hello.userId + "|" + run.hello.loginParam,
              "BOX|10|vintrago");
    const std::string fds = "/proc/" + std::to_string(daemon.pid()) + "/fd/";
    for (const char* fd : {"0", "2"}) {
        EXPECT_EQ(std::filesystem::read_symlink(fds + fd), "/dev/null") << fd;
    }

    // Held first in its print (standard output full), then in its log (today's log a full
    // FIFO): each message is printed, then the checker started, then the line logged.
    const std::string path = daily_log_path(), banner = read_file(path);
    ASSERT_TRUE(unlink(path.c_str()) == 0 && mkfifo(path.c_str(), 0644) == 0);
    close(fill("/proc/" + std::to_string(daemon.pid()) + "/fd/1"));
    const int logFifo = fill(path);
    for (const char* body : {"#1:hello", "#2:true:ab", "#1:",
                             "#1:$(touch /tmp/pwned1);`touch /tmp/pwned2` %s", "#2:false:xy"}) {
        run.server.sendFrame(0, body);
    }
    usleep(300 * 1000);
    EXPECT_EQ(read_file(kCheckerRecord), "");
    daemon.output();
    EXPECT_TRUE(wait_until([] { return file_exists(kCheckerRecord); }, 3));
    usleep(300 * 1000);
    EXPECT_EQ(unfilled(daemon.output()), "Recevied Msg: hello\r\n");
    // A checker runs a second in the background, its output discarded: no message waits.
    std::string lines;
    EXPECT_TRUE(wait_until(
        [&] {
            char chunk[4096];
            for (ssize_t n; (n = read(logFifo, chunk, sizeof(chunk))) > 0;) lines.append(chunk, n);
            lines = unfilled(lines);
            return count_of(lines, "\r\n") + count_of(daemon.output(), "\r\n") == 10;
        },
        1.5));
    close(logFifo);
    ASSERT_EQ(unlink(path.c_str()), 0);
    write_file(path, banner + lines);
    const std::string checked = "out=/dev/null err=/dev/null args=m\n";
    EXPECT_TRUE(
        wait_until([&] { return read_file(kCheckerRecord) == checked + checked + checked; }, 3))
        << read_file(kCheckerRecord);
    EXPECT_FALSE(file_exists("/tmp/pwned1") || file_exists("/tmp/pwned2"));

    // A connection lost inside a frame is taken up again at once, under a new identifier,
    // without a warning; the cut frame is lost.
    ASSERT_TRUE(run.server.sendRaw(0, "0020#1:cut short"));
    usleep(100 * 1000);
    const double lost = now();
    ASSERT_TRUE(run.server.reset(0));
    pushserver::Handshake next;
    ASSERT_TRUE(run.server.waitForHandshake(1, std::chrono::seconds(5), &next));
    EXPECT_LT(now() - lost, 0.9);
    EXPECT_NE(next.identifier, run.hello.identifier);
    EXPECT_EQ(run.server.received(0), "BOX:(" + run.hello.identifier + ")10\nvintrago\n\n");

    // The heartbeat looks at once, then every 4 s: the daemon outlives a look with the mount.
    std::this_thread::sleep_for(std::chrono::duration<double>(connected + 5 - now()));
    ASSERT_TRUE(daemon.running());
    run.unmount();
    int status = 0;
    ASSERT_TRUE(daemon.wait_exit(10, &status));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_EQ(commands(connected, now()),
              "mount\nmount\nmount\nmount\nmount\nmount\nmount\npidof -s hoxen\n.44......");
    // Standard output is a pipe here: what was printed survives the kill -9.
    EXPECT_EQ(unfilled(daemon.output()),
              "Recevied Msg: hello\r\n"
              "Auth: passed, Token:ab\r\n"
              "Recevied Msg: \r\n"
              "Recevied Msg: $(touch /tmp/pwned1);`touch /tmp/pwned2` %s\r\n"
              "Auth: failed, Token:xy\r\n");
    // The whole log; the mount was gone, so no unmount is logged. Nothing else is written.
    const std::string rule = " ============================================ \r\n";
    const std::string received = "[INFO] recieve message(manual integrity check) \r\n";
    EXPECT_EQ(logged(), rule + " ============ HOXEN is Started!! ============ \r\n" + rule +
                            "  --- 127.0.0.1 " + std::to_string(run.server.port()) +
                            " BOX 10 *** \r\n" + received + "[INFO] auth: passed, token:ab \r\n" +
                            received + received + "[INFO] auth: failed, token:xy \r\n" +
                            "[CRIT] quillo process is stopped, kill all process! \r\n" +
                            "[INFO] hoxen(pid=" + std::to_string(daemon.pid()) +
                            ") is stopped !\r\n \r\n");
    shell("find /var/log > /tmp/found");
    EXPECT_EQ(read_file("/tmp/found"),
              "/var/log\n/var/log/quillo\n/var/log/quillo/hoxen\n" + path + "\n");
}
