// The real daemon's answers to push events: printing, logging, checker, reconnection.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/daemon_harness.h"
#include "tools/pushserver/push_server.h"

using namespace hoxen_test;
using pushserver::Handshake;
using pushserver::PushServer;
using std::chrono::seconds;

TEST(Handlers, AuthAndMessagesArePrintedLoggedAndEachStartsTheCheckerOnce) {
    start_scenario(true);
    QuilloMount mount("/tmp/handlers-events/mnt");
    PushServer server;
    ASSERT_TRUE(server.listen());
    Child daemon(daemon_command({"127.0.0.1", std::to_string(server.port()), "BOX", "10"}));
    Handshake hello;
    ASSERT_TRUE(server.waitForHandshake(0, seconds(10), &hello)) << daemon.output();
    EXPECT_EQ(hello.domain + "|" + hello.userId + "|" + hello.loginParam, "BOX|10|vintrago");

    server.sendFrame(0, "#2:true:ab");
    server.sendFrame(0, "#1:hello");
    server.sendFrame(0, "#1:");
    server.sendFrame(0, "#1:$(touch /tmp/pwned1);`touch /tmp/pwned2` %s");
    server.sendFrame(0, "#2:false:xy");
    ASSERT_TRUE(wait_until([] { return read_file(kCheckerRecord) == "m\nm\nm\n"; }, 10))
        << read_file(kCheckerRecord);
    ASSERT_TRUE(wait_until([&] { return count_of(daemon.output(), "\r\n") == 5; }, 5));
    EXPECT_EQ(daemon.output(),
              "Auth: passed, Token:ab\r\n"
              "Recevied Msg: hello\r\n"
              "Recevied Msg: \r\n"
              "Recevied Msg: $(touch /tmp/pwned1);`touch /tmp/pwned2` %s\r\n"
              "Auth: failed, Token:xy\r\n");
    EXPECT_FALSE(file_exists("/tmp/pwned1") || file_exists("/tmp/pwned2"));
    std::string text = read_file(daily_log_path());
    EXPECT_EQ(count_of(text, "] : [INFO] auth: passed, token:ab \r\n"), 1) << text;
    EXPECT_EQ(count_of(text, "] : [INFO] recieve message(manual integrity check) \r\n"), 3);
    EXPECT_EQ(count_of(text, "] : [INFO] auth: failed, token:xy \r\n"), 1) << text;
}

TEST(Handlers, LostServerIsReconnectedAndEachFailedAttemptWarned) {
    start_scenario(true);
    QuilloMount mount("/tmp/handlers-reconnect/mnt");
    PushServer server;
    ASSERT_TRUE(server.listen());
    const int port = server.port();
    Child daemon(daemon_command({"127.0.0.1", std::to_string(port), "BOX", "10"}));
    Handshake first, second;
    ASSERT_TRUE(server.waitForHandshake(0, seconds(10), &first)) << daemon.output();

    server.close(0);
    ASSERT_TRUE(server.waitForHandshake(1, seconds(3), &second));
    EXPECT_NE(first.identifier, second.identifier);
    EXPECT_EQ(read_file(daily_log_path()).find("[WARN]"), std::string::npos);

    server.stopListening();
    server.close(1);
    sleep(3);
    ASSERT_TRUE(server.listen(port));
    ASSERT_TRUE(server.waitForHandshake(2, seconds(3)));
    std::string text = read_file(daily_log_path());
    EXPECT_GE(count_of(text, "] : [WARN] disconnected \r\n"), 2) << text;
    EXPECT_LE(count_of(text, "] : [WARN] disconnected \r\n"), 4) << text;
    EXPECT_TRUE(daemon.running());
}
