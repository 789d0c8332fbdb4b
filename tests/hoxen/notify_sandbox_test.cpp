// The daemon under a service manager: a datagram socket named by NOTIFY_SOCKET stands in for
// systemd. Ready once the banner is logged, even with the server out of reach (tried every
// second); a status line that follows the connection and counts what arrived; a watchdog ping
// an attempt while connecting and about once a second while idle. Without NOTIFY_SOCKET
// nothing of this happens: the other daemon tests compare whole outputs and logs.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <ctime>
#include <regex>
#include <string>

#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

namespace {

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
        wait_until(
            [&] {
                read();
                return std::regex_search(text.cbegin() + at, text.cend(), found, wanted);
            },
            seconds);
        EXPECT_FALSE(found.empty()) << pattern << " in " << text.substr(at);
        if (found.empty())
            return false;
        at = found[0].second - text.cbegin();
        group = found.str(1);
        return true;
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

TEST(Notify, ReadyBeforeTheFirstConnectTriedEverySecondThenStatusAndWatchdogFollowIt) {
    start_scenario(true);
    NotifySocket notify("/tmp/notify.sock");
    // strace holds each write of the daemon's main thread 300 ms: the banner takes more than a
    // second to log, an attempt 1.3 s. The server listens only later. The address fills its
    // 127-character field (inet_addr reads up to the blank) and is reported whole. Three
    // arguments leave the device id empty; a long one is cut to its field.
    const std::string ip = "127.0.0.1" + std::string(117, ' ') + "x";
    ConnectedDaemon run("/tmp/notify/mnt", {std::string(300, 'd')},
                        {"/usr/bin/strace", "-qq", "-o", "/dev/null", "-e", "trace=write", "-e",
                         "inject=write:delay_enter=300000", "/bin/sh", "-c",
                         "exec \"$0\" '" + ip + "' \"$2\" \"$3\""},
                        true);
    unsetenv("NOTIFY_SOCKET");
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

    pushserver::Handshake hello;
    ASSERT_TRUE(server.listen(server.port()) &&
                server.waitForHandshake(0, std::chrono::seconds(5), &hello));
    EXPECT_EQ(hello.domain + "|" + hello.userId + "|" + hello.loginParam,
              std::string(127, 'd') + "||vintrago");
    ASSERT_TRUE(notify.wait_for("STATUS=connected" + to + " since " + when + none, at, 5));
    EXPECT_LE(age_of(notify.group), 2);
    // Idle, the receive thread pings once a second and has nothing new to tell.
    sleep(3);
    EXPECT_TRUE(std::regex_match(notify.read().substr(at), std::regex("(WATCHDOG=1\\|){2,4}")))
        << notify.text.substr(at);

    // Ten, so that the counts are shown in decimal.
    for (int i = 0; i < 10; i++) ASSERT_TRUE(server.sendFrame(0, "#1:m"));
    const std::string counted = "; messages 10, checker launches 10, last message " + when + "\\|";
    ASSERT_TRUE(
        notify.wait_for("WATCHDOG=1\nSTATUS=connected" + to + " since [^|]*" + counted, at, 3));
    EXPECT_LE(age_of(notify.group), 2);

    // Lost: each attempt pings and is counted until the server listens again; the counts stay.
    // The session's thread takes the connection up again, warning after each failed attempt.
    server.stopListening();
    ASSERT_TRUE(server.close(0));
    ASSERT_TRUE(notify.wait_for(attempts("reconnecting", counted), at, 5));
    ASSERT_TRUE(server.listen(server.port()) &&
                server.waitForHandshake(1, std::chrono::seconds(3)));
    ASSERT_TRUE(notify.wait_for("\\|STATUS=connected" + to + " since " + when + counted, at, 3));
    EXPECT_LE(age_of(notify.group), 2);
    EXPECT_TRUE(std::regex_match(run.daemon->output(),
                                 std::regex("(Can't connect with the server\r\n){2,4}"
                                            "(Recevied Msg: m\r\n){10}")))
        << run.daemon->output();
    const int warned = count_of(logged(), "[WARN] disconnected \r\n");
    EXPECT_TRUE(warned >= 1 && warned <= 2) << logged();

    // strace, ended by the harness, would leave the daemon running: end the daemon first.
    const std::string pid = std::to_string(run.daemon->pid());
    kill(atoi(read_file("/proc/" + pid + "/task/" + pid + "/children").c_str()), SIGKILL);
}
