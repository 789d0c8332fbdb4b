// The real daemon from start to end: usage, banner, the first connection, its answers to push
// events (printing, starting the checker, logging, in that order), lost connections, and the
// heartbeat that ends it by kill -9 once the quillo FUSE mount is gone. A datagram socket stands
// in for systemd: ready after the banner, a status line of the connection and counts, pings.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>

#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

namespace {

// Fills the pipe or FIFO at `path` with '~' through a descriptor of its own, which it returns.
int fill(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_NONBLOCK);
    const std::string junk(4096, '~');
    while (write(fd, junk.data(), junk.size()) > 0) continue;
    return fd;
}

// `text` without the '~' that fill() wrote.
std::string unfilled(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '~'), text.end());
    return text;
}

// Binds `path` and names it in NOTIFY_SOCKET; keeps every message, each followed by "|".
struct NotifySocket {
    explicit NotifySocket(const std::string& path) {
        sockaddr_un addr{AF_UNIX, {}};
        path.copy(addr.sun_path, sizeof(addr.sun_path) - 1);
        EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~NotifySocket() { close(fd); }
    // Waits until the messages after `at` hold a match of `pattern`; `at` then points past it
    // and `group` holds the match's first group.
    bool wait_for(const std::string& pattern, size_t& at, double seconds) {
        std::smatch found;
        const std::regex wanted(pattern);
        const bool seen = wait_until(
            [&] {
                read();
                return std::regex_search(text.cbegin() + at, text.cend(), found, wanted);
            },
            seconds);
        EXPECT_TRUE(seen) << pattern << " in " << text.substr(at);
        at = seen ? found[0].second - text.cbegin() : at;
        group = found.str(1);
        return seen;
    }
    const std::string& read() {
        char message[1024];
        for (ssize_t n; (n = recv(fd, message, sizeof(message), 0)) > 0;)
            text += std::string(message, n) + "|";
        return text;
    }

    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    std::string text, group;
};

// Seconds from a local "YYYY-MM-DD hh:mm:ss" to now.
double age_of(const std::string& when) {
    struct tm t {};
    strptime(when.c_str(), "%Y-%m-%d %H:%M:%S", &t);
    t.tm_isdst = -1;
    return difftime(time(nullptr), mktime(&t));
}

}  // namespace

TEST(Daemon, RunsFromUsageToTheKillAnsweringPushEventsInTurnAndTellingTheServiceManager) {
    start_scenario(true, 1);
    // Fewer than three arguments (fewer still take the same way): the usage line, no log.
    Child usage({kHoxen, "127.0.0.1", "1"});
    int status = -1;
    EXPECT_TRUE(usage.wait_exit(10, &status) && WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(usage.output(),
              "Usage: ./hoxen A.B.C.D port domain device_id"
              "        -- ./hoxen 192.0.2.10 10099 BOX 10");
    EXPECT_FALSE(file_exists(daily_log_path()));
    for (const char* name : {"mount", "pidof", "umount", "ps", "mkdir"}) fake(name);
    NotifySocket notify("/tmp/notify.sock");
    // strace holds each write of the daemon's main thread 300 ms: the banner takes more than a
    // second to log, an attempt 1.3 s. The server listens only later. The address fills its
    // 127-character field (inet_addr reads up to the blank) and is reported whole. Three
    // arguments leave the device id empty; a long one is cut to its field. Standard input and
    // error closed: the daemon takes /dev/null for them alone, whatever errno held.
    const std::string ip = "127.0.0.1" + std::string(117, ' ') + "x";
    ConnectedDaemon run("/tmp/daemon/mnt", {std::string(300, 'd')},
                        {"/usr/bin/strace", "-qq", "-o", "/dev/null", "-e", "trace=write", "-e",
                         "inject=write:delay_enter=300000", "/bin/sh", "-c",
                         "exec \"$0\" '" + ip + "' \"$2\" \"$3\" <&- 2>&-"},
                        true);
    pushserver::PushServer& server = run.server;
    const std::string to = " to 127\\.0\\.0\\.1 {117}x:" + std::to_string(server.port());
    const std::string none = "; messages 0, checker launches 0\\|";
    const std::string when = "(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d)";
    // Two attempts in a row, each a watchdog ping with the attempts counted.
    auto attempts = [&](const std::string& verb, const std::string& counts) {
        return "WATCHDOG=1\nSTATUS=" + verb + to + " \\(attempts 1\\)" + counts +
               "WATCHDOG=1\nSTATUS=" + verb + to + " \\(attempts 2\\)" + counts;
    };

    size_t at = 0;
    ASSERT_TRUE(notify.wait_for("READY=1", at, 10));
    EXPECT_EQ(count_of(read_file(daily_log_path()), "\r\n"), 4);  // the banner, whole
    at = 0;
    EXPECT_TRUE(notify.wait_for(
        "^READY=1\nSTATUS=connecting" + to + none + attempts("connecting", none), at, 10));
    const double second = now();
    ASSERT_TRUE(notify.wait_for("attempts 3", at, 5));
    EXPECT_TRUE(now() - second > 0.8 && now() - second < 2) << now() - second;

    ASSERT_TRUE(server.listen(server.port()) &&
                server.waitForHandshake(0, std::chrono::seconds(5), &run.hello));
    const double connected = now();
    EXPECT_EQ(run.hello.domain + "|" + run.hello.userId + "|" + run.hello.loginParam,
              std::string(127, 'd') + "||vintrago");
    Child& daemon = *run.daemon;  // strace, whose child is the daemon
    const std::string tracer = std::to_string(daemon.pid());
    const std::string pid = std::to_string(
        atoi(read_file("/proc/" + tracer + "/task/" + tracer + "/children").c_str()));
    const std::string fds = "/proc/" + pid + "/fd/";
    std::string nulls;
    for (const auto& fd : std::filesystem::directory_iterator(fds))
        if (std::filesystem::read_symlink(fd) == "/dev/null")
            nulls += fd.path().filename().string() + " ";
    EXPECT_EQ(nulls, "0 2 ");
    const std::string connecting = daemon.output();
    EXPECT_TRUE(
        std::regex_match(connecting, std::regex("(Can't connect with the server\r\n){2,4}")))
        << connecting;
    ASSERT_TRUE(notify.wait_for("STATUS=connected" + to + " since " + when + none, at, 5));
    EXPECT_LE(age_of(notify.group), 2);
    // Idle, the receive thread pings once a second and has nothing new to tell.
    sleep(3);
    EXPECT_TRUE(std::regex_match(notify.read().substr(at), std::regex("(WATCHDOG=1\\|){2,4}")))
        << notify.text.substr(at);

    // Held first in its print (standard output full), then in its log (today's log a full
    // FIFO): each message is printed, then the checker started, then the line logged.
    const std::string path = daily_log_path(), started = read_file(path);
    ASSERT_TRUE(unlink(path.c_str()) == 0 && mkfifo(path.c_str(), 0644) == 0);
    close(fill(fds + "1"));
    const int logFifo = fill(path);
    for (const char* body : {"#1:hello", "#2:true:ab", "#1:",
                             "#1:$(touch /tmp/pwned1);`touch /tmp/pwned2` %s", "#2:false:xy"})
        server.sendFrame(0, body);
    usleep(300 * 1000);
    EXPECT_EQ(read_file(kCheckerRecord), "");
    daemon.output();
    EXPECT_TRUE(wait_until([] { return file_exists(kCheckerRecord); }, 3));
    usleep(300 * 1000);
    EXPECT_EQ(unfilled(daemon.output().substr(connecting.size())), "Recevied Msg: hello\r\n");
    // A checker runs a second in the background, its output discarded: no message waits.
    std::string lines;
    EXPECT_TRUE(wait_until(
        [&] {
            char chunk[4096];
            for (ssize_t n; (n = read(logFifo, chunk, sizeof(chunk))) > 0;) lines.append(chunk, n);
            lines = unfilled(lines);
            return count_of(lines, "\r\n") + count_of(daemon.output(), "\r\n") ==
                   10 + count_of(connecting, "\r\n");
        },
        1.5));
    close(logFifo);
    ASSERT_EQ(unlink(path.c_str()), 0);
    write_file(path, started + lines);
    const std::string checked = "out=/dev/null err=/dev/null args=m\n";
    EXPECT_TRUE(
        wait_until([&] { return read_file(kCheckerRecord) == checked + checked + checked; }, 3))
        << read_file(kCheckerRecord);
    EXPECT_FALSE(file_exists("/tmp/pwned1") || file_exists("/tmp/pwned2"));

    // Ten messages in all, so that the counts are shown in decimal.
    for (int i = 0; i < 7; i++) ASSERT_TRUE(server.sendFrame(0, "#1:m"));
    const std::string counted = "; messages 10, checker launches 10, last message " + when + "\\|";

    // A connection lost inside a frame, the server away: the session's thread tries again at
    // once, then every second, each attempt a ping and counted, the counts kept; it warns after
    // each failed attempt only. The cut frame is lost; the new connection has a new identifier.
    ASSERT_TRUE(server.sendRaw(0, "0020#1:cut short"));
    usleep(100 * 1000);
    server.stopListening();
    const double lost = now();
    ASSERT_TRUE(server.reset(0));
    ASSERT_TRUE(notify.wait_for(attempts("reconnecting", counted), at, 5));
    EXPECT_LT(now() - lost, 1.9);
    pushserver::Handshake next;
    ASSERT_TRUE(server.listen(server.port()) &&
                server.waitForHandshake(1, std::chrono::seconds(3), &next));
    ASSERT_TRUE(notify.wait_for("\\|STATUS=connected" + to + " since " + when + counted, at, 3));
    EXPECT_LE(age_of(notify.group), 2);
    EXPECT_NE(next.identifier, run.hello.identifier);
    EXPECT_EQ(server.received(0),
              std::string(127, 'd') + ":(" + run.hello.identifier + ")\nvintrago\n\n");
    const int warned = count_of(logged(), "[WARN] disconnected \r\n");
    EXPECT_EQ(warned, count_of(notify.text, "STATUS=reconnecting") - 1) << logged();

    // The heartbeat looks at once, then every 4 s: the daemon outlives the looks with the
    // mount. Unmounted between two looks, it is found gone at the next one.
    const double looks = std::max(0.0, std::ceil((now() - connected - 2) / 4));
    std::this_thread::sleep_for(std::chrono::duration<double>(connected + 4 * looks + 2 - now()));
    ASSERT_TRUE(daemon.running());
    run.unmount();
    EXPECT_TRUE(daemon.wait_exit(10, &status) && WIFSIGNALED(status) && WTERMSIG(status) == 9);
    // The first look waits for the daemon's main thread, which strace slows down.
    const std::string done = commands(connected, now());
    EXPECT_TRUE(std::regex_match(
        done, std::regex("(mount\n){" + std::to_string(int(looks) + 6) + "}pidof -s hoxen\n[.?]" +
                         std::string(looks + 1, '4') + "\\.{6}")))
        << done;
    // Standard output is a pipe here: what was printed survives the kill -9.
    const auto times = [](int n, const std::string& text) {
        std::string all;
        while (n-- > 0) all += text;
        return all;
    };
    const std::string received = "[INFO] recieve message(manual integrity check) \r\n";
    EXPECT_EQ(unfilled(daemon.output().substr(connecting.size())),
              "Recevied Msg: hello\r\n"
              "Auth: passed, Token:ab\r\n"
              "Recevied Msg: \r\n"
              "Recevied Msg: $(touch /tmp/pwned1);`touch /tmp/pwned2` %s\r\n"
              "Auth: failed, Token:xy\r\n" +
                  times(7, "Recevied Msg: m\r\n"));
    // The whole log; the mount was gone, so no unmount is logged. Nothing else is written.
    // The banner is cut to the longest line a log takes.
    const std::string banner =
        "  --- " + ip + " " + std::to_string(server.port()) + " " + std::string(300, 'd');
    const std::string rule = " ============================================ \r\n";
    EXPECT_EQ(logged(), rule + " ============ HOXEN is Started!! ============ \r\n" + rule +
                            banner.substr(0, 228) + " \r\n" + received +
                            "[INFO] auth: passed, token:ab \r\n" + received + received +
                            "[INFO] auth: failed, token:xy \r\n" + times(7, received) +
                            times(warned, "[WARN] disconnected \r\n") +
                            "[CRIT] quillo process is stopped, kill all process! \r\n" +
                            "[INFO] hoxen(pid=" + pid + ") is stopped !\r\n \r\n");
    shell("find /var/log > /tmp/found");
    EXPECT_EQ(read_file("/tmp/found"),
              "/var/log\n/var/log/quillo\n/var/log/quillo/hoxen\n" + path + "\n");
}
