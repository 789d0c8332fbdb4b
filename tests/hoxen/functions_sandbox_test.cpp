// The daemon's functions called in this process, inside tools/sandbox: the daily log under
// /var/log/quillo/hoxen, the process lookups on controlled command output (fake mount, ps and
// pidof first on PATH), and the stop functions, which log, unmount and kill (our children).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <tuple>

#include "hoxen/hoxen.h"
#include "tavik/tavik.h"  // the public headers of all three layers go together
#include "tests/support/hostile_run.h"

using namespace hoxen_test;

namespace {

void log_text(std::string text) {
    log(&text[0]);
}

// A fake command named `name` that runs `body` (sh), first on PATH from the first call on.
void fake(const std::string& name, const std::string& body) {
    static const bool onPath =
        shell("mkdir -p /tmp/fakes") == 0 &&
        setenv("PATH", ("/tmp/fakes:" + std::string(getenv("PATH"))).c_str(), 1) == 0;
    ASSERT_TRUE(onPath);
    write_file("/tmp/fakes/" + name, "#!/bin/sh\n" + body + "\n", 0755);
}

// A fake command that prints `output` as it is (kept in a file beside it).
void fake_prints(const std::string& name, const std::string& output) {
    fake(name, "cat /tmp/fakes/" + name + ".out");
    write_file("/tmp/fakes/" + name + ".out", output);
}

// Starts the daily log afresh, switched on and its folder made.
void fresh_log() {
    shell("rm -rf /var/log/quillo /tmp/pwned*");
    write_file("/tmp/logging.dat", "");
    log_text("[INFO] log ready");  // the first call may lose its line to mkdir
}

}  // namespace

TEST(DailyLog, FollowsTheLocalDateAndWritesOnlyWhileSwitchedOnLeavingNoStreamOpen) {
    // Local time as struct tm, fields from the seconds up: {s, min, h, day, month - 1, year}.
    const struct tm march5 = {9, 7, 14, 5, 2, 126, 0, 0, 0, 0, nullptr};
    const struct tm newYear = {0, 0, 0, 1, 0, 127, 0, 0, 0, 0, nullptr};
    char text[256];
    format_log_file_name(text, sizeof(text), march5);
    EXPECT_STREQ(text, "/var/log/quillo/hoxen/pushclient_20260305.log");
    format_log_file_name(text, sizeof(text), newYear);
    EXPECT_STREQ(text, "/var/log/quillo/hoxen/pushclient_20270101.log");
    EXPECT_EQ(format_log_line(text, sizeof(text), march5, "100% %s %n"), 37u);
    EXPECT_STREQ(text, "[2026-03-05 14:07:09] : 100% %s %n \r\n");

    shell("rm -rf /var/log/quillo /tmp/logging.dat");
    const int before = footprint_of(getpid()).fds;
    log_text("[INFO] not recorded");
    EXPECT_FALSE(file_exists("/var/log/quillo"));

    write_file("/tmp/logging.dat", "");
    // The parent directory is made in the background, so the first lines may be lost.
    ASSERT_TRUE(wait_until(
        [] {
            log_text("[INFO] first");
            return file_exists(daily_log_path());
        },
        5));
    log_text("[WARN] 50% of %s done");
    log_text(std::string(1000, 'y'));  // cut, keeping its stamp and line end
    for (int i = 0; i < 50; ++i) log_text("[INFO] on");
    shell("rm -f /tmp/logging.dat");
    log_text("[INFO] switched off");
    EXPECT_EQ(footprint_of(getpid()).fds, before);

    const std::string written = read_file(daily_log_path());
    EXPECT_EQ(count_of(written, "] : [WARN] 50% of %s done \r\n"), 1) << written;
    EXPECT_EQ(count_of(written, "] : " + std::string(228, 'y') + " \r\n"), 1);
    EXPECT_EQ(written.find("not recorded"), std::string::npos);
    EXPECT_EQ(written.find("switched off"), std::string::npos);
}

TEST(ProcessLookup, PidsComeFromTheFirstLineThatMatchesAndIsNoGrep) {
    for (auto [text, pid] :
         {std::pair<std::string, int>{"root 4242 1 0 10:00 ? 00:00:00 quillo", 4242},
          {"user5     4242     1", 5},
          {"0 00 000 \t", -1},
          {"abc 0012x", 12},
          {"\xb5\xc3\xa9 77", 77}}) {
        EXPECT_EQ(getIntPid(&text[0]), pid) << text;
    }
    std::string digits(300, '7');
    getIntPid(&digits[0]);  // bounded copy: no overrun (checked by the sanitizers)

    fake_prints("ps",
                "root 11 1 0 10:00 ? 00:00:00 grep integrity p\n"
                "root 321 1 0 10:00 ? 00:00:00 /brellium/orvaclient/integrity/integrity p\n"
                "root 654 1 0 10:00 ? 00:00:00 /usr/bin/quillo -heartbit\n");
    EXPECT_EQ(get_integrity_pid(), 321);
    EXPECT_EQ(getQuillosHeartBitPid(), 654);
    fake_prints("ps", "root 321 1 0 10:00 ? 00:00:00 /brellium/orvaclient/integrity/integrity m\n");
    EXPECT_EQ(get_integrity_pid(), -1);
    EXPECT_EQ(getQuillosHeartBitPid(), -1);
    // Low pids count as not found; silence right after a hit must not repeat the last answer.
    for (auto [out, pid] : {std::pair{"4321\n", 4321}, {"2\n", -1}, {"4321\n", 4321}, {"", -1}}) {
        fake_prints("pidof", out);
        EXPECT_EQ(get_hoxen_pid(), pid) << out;
    }
}

TEST(ProcessLookup, OnlyAFuseQuilloMountCountsButAnyQuilloLineHasAPath) {
    // Each listing, the mount lookup's answer and the path found (null: not checked).
    std::tuple<const char*, int, const char*> cases[] = {
        {"sysfs on /sys type sysfs (rw)\nquillo on /mnt/data type fuse.quillo (rw)\n", 1000,
         "/mnt/data"},
        {"quillo on /mnt/other type tmpfs (rw)\n", -1, "/mnt/other"},
        {"quillo grep on /x type fuse.quillo (rw)\n", -1, nullptr},
        {"", -1, ""},
        {"quillo-without-marker\nquillo on /second type fuse.quillo\n", 1000, ""},
        {"quillo on /end\n", -1, "/end\n"},
    };
    for (auto [listing, pid, path] : cases) {
        fake_prints("mount", listing);
        EXPECT_EQ(getQuillosMountPid(), pid) << listing;
        if (path != nullptr) {
            EXPECT_STREQ(getMountPath(), path) << listing;
        }
    }
}

TEST(StopSequence, MountPathsReachUmountQuotedAndTheLogAsTheyAre) {
    fresh_log();
    const std::string path =
        "/tmp/a;touch${IFS}/tmp/pwned1;$(touch${IFS}/tmp/pwned2)'`touch${IFS}/tmp/pwned3`";
    fake_prints("mount", "quillo on " + path + " type fuse.quillo (rw)\n");
    fake("umount", "printf '%s|' \"$@\" >> /tmp/umount.calls; echo >> /tmp/umount.calls");
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
    // A quoted path that does not fit is not written at all.
    char small[8];
    EXPECT_FALSE(shell_quote(small, sizeof(small), "/mnt/long"));
    EXPECT_STREQ(small, "");

    fake_prints("mount", "");
    shell("rm /var/log/quillo/hoxen/*");
    stop_quillo();
    EXPECT_EQ(read_file(daily_log_path()), "");  // nothing listed: nothing to stop or log
}

TEST(StopSequence, StopFunctionsKillWhatTheLookupsFind) {
    fresh_log();
    for (auto [process, stop] : {std::pair<const char*, void (*)()>{
                                     "/brellium/orvaclient/integrity/integrity p", stop_integrity},
                                 {"/usr/bin/quillo -heartbit", stop_quillo_heartbit}}) {
        // ps lists a sleeping child of ours as that process for as long as it is no zombie.
        Child sleeper({"/bin/sleep", "30"});
        fake("ps", "pid=" + std::to_string(sleeper.pid()) +
                       "; grep -q '^State:.Z' /proc/$pid/status ||"
                       " echo \"root $pid 1 0 10:00 ? 00:00:00 " +
                       process + "\"");
        stop();
        int status = 0;
        EXPECT_TRUE(sleeper.wait_exit(5, &status));
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << process;
    }
    // stop_hoxen, which the heartbeat calls, is checked on the daemon itself.
    EXPECT_EQ(count_of(read_file(daily_log_path()), "] : [INFO] integrity(pid="), 1);
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
