// The daemon's functions called in this process, inside tools/sandbox: the daily log, process
// lookups on controlled command output, the stop functions and the heartbeat with the commands
// they run and their pace (fakes first on PATH record them), and the reconnection after an error.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <thread>
#include <tuple>

#include "hoxen/hoxen.h"
#include "tavik/tavik.h"  // the public headers of all three layers go together
#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

TEST(DailyLog, FollowsTheLocalDateAndWritesOnlyWhileSwitchedOnLeavingNoStreamOpen) {
    // Local time as struct tm, fields from the seconds up: {s, min, h, day, month - 1, year}.
    const struct tm christmas = {58, 59, 23, 25, 11, 126, 0, 0, 0, 0, nullptr};
    const struct tm june = {1, 2, 3, 4, 5, 127, 0, 0, 0, 0, nullptr};
    const auto log_text = [](std::string text) { log(&text[0]); };
    char text[256];
    for (auto [when, day] : {std::pair{christmas, "20261225"}, {june, "20270604"}}) {
        format_log_file_name(text, sizeof(text), when);
        EXPECT_EQ(text, "/var/log/quillo/hoxen/pushclient_" + std::string(day) + ".log");
    }
    EXPECT_EQ(format_log_line(text, sizeof(text), june, "100% %s %n"), 37u);
    EXPECT_STREQ(text, "[2027-06-04 03:02:01] : 100% %s %n \r\n");

    shell("rm -rf /var/log/quillo /tmp/logging.dat /tmp/commands");
    fake("mkdir", {}, "sleep 1; /bin/mkdir -p \"$@\"");
    const int before = descriptor_count();
    log_text("[INFO] not recorded");
    EXPECT_FALSE(file_exists("/var/log/quillo"));

    // Missing folders are made by mkdir commands; only the last one is waited for.
    write_file("/tmp/logging.dat", "");
    const double start = now();
    log_text("[INFO] first");
    const double end = now();
    log_text("[WARN] 50% of %s done");
    log_text(std::string(229, 'y'));  // one too many: cut, keeping its stamp and line end
    shell("rm -f /tmp/logging.dat");
    log_text("[INFO] switched off");
    EXPECT_EQ(descriptor_count(), before);

    EXPECT_EQ(
        commands(start, end),
        "mkdir /var/log/quillo\nmkdir /var/log/quillo/hoxen\nmkdir /var/log/quillo/hoxen\n...1");
    EXPECT_EQ(logged(),
              "[INFO] first \r\n[WARN] 50% of %s done \r\n" + std::string(228, 'y') + " \r\n");
}

TEST(ProcessLookup, PidsComeFromTheFirstMatchingLineThatIsNoGrepAndMountsFromFuseQuillo) {
    for (auto [text, pid] :
         {std::pair<std::string, int>{"root 4302 1 0 10:00 ? 00:00:00 quillo", 4302},
          {"user5     4242     1", 5},
          {"0 00 000 \t", -1},
          {"abc 0012x", 12},
          {"\xb5\xc3\xa9 97", 97}})
        EXPECT_EQ(getIntPid(&text[0]), pid) << text;
    std::string digits(300, '7');
    getIntPid(&digits[0]);  // bounded copy: no overrun (checked by the sanitizers)

    fake("ps", {"root 11 1 0 10:00 ? 00:00:00 grep integrity p\n"
                "root 321 1 0 10:00 ? 00:00:00 /brellium/orvaclient/integrity/integrity p\n"
                "root 654 1 0 10:00 ? 00:00:00 /usr/bin/quillo -heartbit\n"});
    EXPECT_EQ(get_integrity_pid(), 321);
    EXPECT_EQ(getQuillosHeartBitPid(), 654);
    fake("ps", {"root 321 1 0 10:00 ? 00:00:00 /brellium/orvaclient/integrity/integrity m\n"});
    EXPECT_EQ(get_integrity_pid(), -1);
    EXPECT_EQ(getQuillosHeartBitPid(), -1);
    // Low pids count as not found; silence right after a hit must not repeat the last answer.
    for (auto [out, pid] : {std::pair{"4321\n", 4321}, {"2\n", -1}, {"3\n", 3}, {"", -1}}) {
        fake("pidof", {out});
        EXPECT_EQ(get_hoxen_pid(), pid) << out;
    }
    // Only a fuse.quillo mount counts, but any quillo line has a path. Each listing, the mount
    // lookup's answer and the path found (null: not checked).
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
        fake("mount", {listing});
        EXPECT_EQ(getQuillosMountPid(), pid) << listing;
        if (path != nullptr) {
            EXPECT_STREQ(getMountPath(), path) << listing;
        }
    }
}

TEST(StopSequence, KillPassesPauseASecondAndEndWhenTheLookupFindsNothing) {
    // A mount path that the shell must not read as commands.
    const std::string path =
        "/tmp/a;touch${IFS}/tmp/pwned1;$(touch${IFS}/tmp/pwned2)'`touch${IFS}/tmp/pwned3`";
    const std::string mounted = "quillo on " + path + " type fuse.quillo (rw)\n";
    const std::string unmount = "mount\nmount\nmount\numount -l " + path + "\n";
    const std::string umounted = "[INFO] fuse umount(" + path + ") is stopped ! \r\n";
    const std::string killed = "[INFO] quillo(pid=1000) is stopped ! \r\n";
    const std::string ps = "root PID 1 0 10:00 ? 00:00:00 ";
    fake("umount", {}, "sleep 1");
    fake("pidof", {""});
    const int descriptors = descriptor_count();
    // Each stop with its lookup's outputs, one a call (PID: a sleeping child of ours, which
    // must end by kill -9), then the commands run and their pace, then the log.
    struct {
        void (*stop)();
        std::string lookup;
        std::vector<std::string> outputs;
        std::string commands, log;
    } cases[] = {
        // The heartbeat looks at once, then every 4 s until the mount is gone.
        {[] { check_heartbit(nullptr); }, "mount", {mounted, ""},
         "mount\nmount\nmount\nmount\nmount\nmount\npidof -s hoxen\n.4......",
         "[CRIT] quillo process is stopped, kill all process! \r\n"},
        {stop_hoxen, "pidof", {"PID\n", ""}, "pidof -s hoxen\npidof -s hoxen\n.1.",
         "[INFO] hoxen(pid=PID) is stopped !\r\n \r\n"},
        {stop_integrity, "ps", {ps + "integrity/integrity p\n", ""}, "ps -ef\nps -ef\n.1.",
         "[INFO] integrity(pid=PID) is stopped ! \r\n"},
        {stop_quillo_heartbit, "ps", {"root 42 1 0 10:00 ? 00:00:00 integrity p\n"}, "ps -ef\n..",
         ""},
        // Three unmount passes without a pause, then three kill passes of the fixed 1000.
        {stop_quillo, "mount", {mounted},
         unmount + unmount + unmount + "mount\nmount\nmount\n" + std::string(13, '.') + "111",
         umounted + umounted + umounted + killed + killed + killed},
        {stop_quillo, "mount", {""}, "mount\nmount\nmount\nmount\n.....", ""},
    };
    for (auto& c : cases) {
        start_scenario(true);
        Child sleeper({"/bin/sleep", "30"});
        const std::regex pid("PID");
        const bool kills = std::regex_search(c.log, pid);
        for (std::string& output : c.outputs)
            output = std::regex_replace(output, pid, std::to_string(sleeper.pid()));
        fake(c.lookup, c.outputs);
        const double start = now();
        c.stop();
        const std::string done = commands(start, now());
        EXPECT_EQ(done, c.commands);
        EXPECT_EQ(logged(), std::regex_replace(c.log, pid, std::to_string(sleeper.pid()))) << done;
        int status = 0;
        EXPECT_EQ(sleeper.wait_exit(kills ? 5 : 0, &status) && WTERMSIG(status) == SIGKILL, kills)
            << done;
    }
    EXPECT_EQ(check_count, 4);
    EXPECT_EQ(descriptor_count(), descriptors);  // every listing closed
    EXPECT_NE(shell("ls /tmp/pwned* 2>/dev/null"), 0);
    // A quoted path is written whole, with room for its end, or not at all.
    char small[8];
    for (auto [text, quoted] : {std::pair{"abcde", "'abcde'"}, {"abcdef", ""}}) {
        EXPECT_EQ(shell_quote(small, sizeof(small), text), *quoted != '\0');
        EXPECT_STREQ(small, quoted);
    }
}

TEST(PushHandlers, ErrorsAreWarnedAfterEachFailedReconnectInLinesOfAtMost127Chars) {
    start_scenario(true);
    service_ready("127.0.0.1", 1);  // no NOTIFY_SOCKET: no service manager to tell
    EXPECT_EQ(service_connect_attempt(), 0);
    // Kept for the process: the session's receive thread outlives the test.
    static pushserver::PushServer* server = new pushserver::PushServer;
    static Push* push = new Push;
    ASSERT_TRUE(server->listen());
    server->stopListening();
    snprintf(push->ip, sizeof(push->ip), "127.0.0.1");
    push->port = server->port();
    std::string early;  // the log half a second in, before the port listens
    std::thread listener([&] {
        usleep(500 * 1000);
        early = logged();
        server->listen(push->port);
    });
    push->onError(std::string(200, 'e').c_str());  // refused at once, connected a second later
    listener.join();
    const std::string warning = "[WARN] error occurred: " + std::string(104, 'e') + " \r\n";
    EXPECT_EQ(early + logged(), warning + warning);
    EXPECT_TRUE(server->waitForHandshake(0, std::chrono::seconds(5)));
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
