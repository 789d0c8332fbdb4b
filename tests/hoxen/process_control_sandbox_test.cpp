// Stop functions, the sequence file and the heartbeat loop, against fake command output
// and the test's own children (sandboxed: they log, unmount and kill).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "hoxen/hoxen.h"
#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

class StopSequence : public ::testing::Test {
protected:
    void SetUp() override {
        shell("rm -rf /var/log/quillo /tmp/pwned*");
        write_file("/tmp/logging.dat", "");
        log_text("[INFO] log ready");  // the first call may lose its line to mkdir
    }
    static void log_text(std::string text) { log(&text[0]); }
    // A fake listing that shows `line` for as long as `pid` has not been reaped.
    std::string while_alive(pid_t pid, const std::string& line) {
        return "[ -e /proc/" + std::to_string(pid) + " ] && echo '" + line + "'";
    }
    // Runs `stop` against a sleeping child of ours; returns the signal that ended it.
    int stop_child(const char* name, const std::string& line_before_pid,
                   const std::string& line_after_pid, void (*stop)()) {
        Child sleeper({"/bin/sleep", "30"});
        pid_t pid = sleeper.pid();
        fakes.runs(name, while_alive(pid, line_before_pid + std::to_string(pid) + line_after_pid));
        int status = 0;
        std::thread reaper([&] { sleeper.wait_exit(10, &status); });
        stop();
        reaper.join();
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    FakeCommands fakes{"/tmp/fakes"};
};

TEST_F(StopSequence, MountPathsReachUmountQuotedAndTheLogAsTheyAre) {
    const std::string path = "/tmp/a;touch${IFS}/tmp/pwned1;$(touch${IFS}/tmp/pwned2)'`touch${IFS}/tmp/pwned3`";
    fakes.prints("mount", "quillo on " + path + " type fuse.quillo (rw)\n");
    fakes.runs("umount", "printf '%s|' \"$@\" >> /tmp/umount.calls; echo >> /tmp/umount.calls");
    stop_quillo();
    ASSERT_TRUE(wait_until([] { return count_of(read_file("/tmp/umount.calls"), "\n") == 3; }, 5));
    EXPECT_EQ(read_file("/tmp/umount.calls"), "-l|" + path + "|\n-l|" + path + "|\n-l|" + path + "|\n");
    EXPECT_FALSE(file_exists("/tmp/pwned1") || file_exists("/tmp/pwned2") || file_exists("/tmp/pwned3"));
    std::string text = read_file(daily_log_path());
    EXPECT_EQ(count_of(text, "[INFO] fuse umount(" + path + ") is stopped ! \r\n"), 3) << text;
    // The mount stays listed, so all three kill passes run against the fixed 1000.
    EXPECT_EQ(count_of(text, "[INFO] quillo(pid=1000) is stopped ! \r\n"), 3) << text;
}

TEST_F(StopSequence, NothingListedMeansNothingLoggedOrUnmounted) {
    fakes.prints("mount", "");
    stop_quillo();
    EXPECT_EQ(read_file(daily_log_path()).find("stopped"), std::string::npos);
}

TEST_F(StopSequence, StopFunctionsKillWhatTheLookupsFind) {
    const std::string ps = "root ";
    const std::string rest = " 1 0 10:00 ? 00:00:00 ";
    EXPECT_EQ(stop_child("ps", ps, rest + "/brellium/orvaclient/integrity/integrity p", stop_integrity),
              SIGKILL);
    EXPECT_EQ(stop_child("ps", ps, rest + "/usr/bin/quillo -heartbit", stop_quillo_heartbit), SIGKILL);
    EXPECT_EQ(stop_child("pidof", "", "", stop_hoxen), SIGKILL);
    std::string text = read_file(daily_log_path());
    EXPECT_EQ(count_of(text, "[INFO] integrity(pid="), 1) << text;
    EXPECT_EQ(count_of(text, "[INFO] hoxen(pid="), 1) << text;
    EXPECT_NE(text.find(") is stopped !\r\n \r\n"), std::string::npos) << text;
}

TEST_F(StopSequence, HeartbeatCountsItsPausesAndStopsOnceTheMountIsGone) {
    fakes.prints("mount", "quillo on /tmp/q type fuse.quillo (rw)\n");
    fakes.prints("pidof", "");
    int cp = 3600;
    std::thread monitor([&] { check_heartbit(&cp); });
    ASSERT_TRUE(wait_until([] { return check_count == 4; }, 6));
    EXPECT_EQ(read_file(daily_log_path()).find("[CRIT]"), std::string::npos);
    fakes.prints("mount", "");
    monitor.join();
    EXPECT_EQ(check_count % 4, 0);
    EXPECT_NE(read_file(daily_log_path()).find(
                  "] : [CRIT] quillo process is stopped, kill all process! \r\n"),
              std::string::npos);
}

TEST(SavedSequence, ReadsTheFirstNumberOfTheConfirmFile) {
    shell("rm -f /tmp/hoxen_confirm.txt");
    EXPECT_EQ(get_saved_sequence(), 0);
    write_file("/tmp/hoxen_confirm.txt", "42\n");
    EXPECT_EQ(get_saved_sequence(), 42);
    write_file("/tmp/hoxen_confirm.txt", "7\r\n99");
    EXPECT_EQ(get_saved_sequence(), 7);
    write_file("/tmp/hoxen_confirm.txt", " 42\n");
    EXPECT_EQ(get_saved_sequence(), 0);
    write_file("/tmp/hoxen_confirm.txt", std::string(1000, '1'));
    get_saved_sequence();  // bounded read: no overrun (checked by the sanitizers)
}
