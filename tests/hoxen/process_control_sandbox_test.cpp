// Stop functions and the sequence file, against fake command output and the test's own
// children (sandboxed: they log, unmount and kill).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

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
        std::string first = "[INFO] log ready";  // the first call may lose its line to mkdir
        log(&first[0]);
    }
    // Runs `stop` while the fake `name` lists a sleeping child of ours, as long as it lives,
    // between `before` and `after`; returns the signal that ended the child.
    int stop_child(const char* name, const std::string& before, const std::string& after,
                   void (*stop)()) {
        Child sleeper({"/bin/sleep", "30"});
        const std::string pid = std::to_string(sleeper.pid());
        fakes.runs(name, "[ -e /proc/" + pid + " ] && echo '" + before + pid + after + "'");
        int status = 0;
        std::thread reaper([&] { sleeper.wait_exit(10, &status); });
        stop();
        reaper.join();
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    FakeCommands fakes{"/tmp/fakes"};
};

TEST_F(StopSequence, MountPathsReachUmountQuotedAndTheLogAsTheyAre) {
    const std::string path =
        "/tmp/a;touch${IFS}/tmp/pwned1;$(touch${IFS}/tmp/pwned2)'`touch${IFS}/tmp/pwned3`";
    fakes.prints("mount", "quillo on " + path + " type fuse.quillo (rw)\n");
    fakes.runs("umount", "printf '%s|' \"$@\" >> /tmp/umount.calls; echo >> /tmp/umount.calls");
    stop_quillo();
    ASSERT_TRUE(wait_until([] { return count_of(read_file("/tmp/umount.calls"), "\n") == 3; }, 5));
    EXPECT_EQ(read_file("/tmp/umount.calls"),
              "-l|" + path + "|\n-l|" + path + "|\n-l|" + path + "|\n");
    for (const char* file : {"/tmp/pwned1", "/tmp/pwned2", "/tmp/pwned3"}) {
        EXPECT_FALSE(file_exists(file)) << file;
    }
    std::string text = read_file(daily_log_path());
    EXPECT_EQ(count_of(text, "[INFO] fuse umount(" + path + ") is stopped ! \r\n"), 3) << text;
    // The mount stays listed, so all three kill passes run against the fixed 1000.
    EXPECT_EQ(count_of(text, "[INFO] quillo(pid=1000) is stopped ! \r\n"), 3) << text;

    fakes.prints("mount", "");
    shell("rm /var/log/quillo/hoxen/*");
    stop_quillo();
    EXPECT_EQ(read_file(daily_log_path()), "");  // nothing listed: nothing to stop or log
}

TEST_F(StopSequence, StopFunctionsKillWhatTheLookupsFind) {
    const std::string rest = " 1 0 10:00 ? 00:00:00 ";
    EXPECT_EQ(stop_child("ps", "root ", rest + "/brellium/orvaclient/integrity/integrity p",
                         stop_integrity),
              SIGKILL);
    EXPECT_EQ(stop_child("ps", "root ", rest + "/usr/bin/quillo -heartbit", stop_quillo_heartbit),
              SIGKILL);
    EXPECT_EQ(stop_child("pidof", "", "", stop_hoxen), SIGKILL);
    std::string text = read_file(daily_log_path());
    EXPECT_EQ(count_of(text, "[INFO] integrity(pid="), 1) << text;
    EXPECT_EQ(count_of(text, "[INFO] hoxen(pid="), 1) << text;
    EXPECT_NE(text.find(") is stopped !\r\n \r\n"), std::string::npos) << text;
}

TEST(SavedSequence, ReadsTheFirstNumberOfTheConfirmFile) {
    shell("rm -f /tmp/hoxen_confirm.txt");
    EXPECT_EQ(get_saved_sequence(), 0);
    for (auto [text, number] : {std::pair{"42\n", 42}, {"7\r\n99", 7}, {" 42\n", 0}}) {
        write_file("/tmp/hoxen_confirm.txt", text);
        EXPECT_EQ(get_saved_sequence(), number) << text;
    }
    write_file("/tmp/hoxen_confirm.txt", std::string(1000, '1'));
    get_saved_sequence();  // bounded read: no overrun (checked by the sanitizers)
}
