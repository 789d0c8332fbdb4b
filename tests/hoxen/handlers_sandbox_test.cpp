// The real daemon's answers to push events: printing, logging, checker, reconnection.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/daemon_harness.h"

using namespace hoxen_test;

TEST(Handlers, AuthAndMessagesArePrintedLoggedAndEachStartsTheCheckerOnce) {
    start_scenario(true);
    ConnectedDaemon run("/tmp/handlers-events/mnt");
    EXPECT_EQ(run.hello.domain + "|" + run.hello.userId + "|" + run.hello.loginParam,
              "BOX|10|vintrago");
    for (const char* body : {"#2:true:ab", "#1:hello", "#1:",
                             "#1:$(touch /tmp/pwned1);`touch /tmp/pwned2` %s", "#2:false:xy"}) {
        run.server.sendFrame(0, body);
    }
    ASSERT_TRUE(wait_until([] { return read_file(kCheckerRecord) == "m\nm\nm\n"; }, 10))
        << read_file(kCheckerRecord);
    ASSERT_TRUE(wait_until([&] { return count_of(run.daemon->output(), "\r\n") == 5; }, 5));
    EXPECT_EQ(run.daemon->output(),
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
    ConnectedDaemon run("/tmp/handlers-reconnect/mnt");
    pushserver::PushServer& server = run.server;
    pushserver::Handshake second;
    server.close(0);
    ASSERT_TRUE(server.waitForHandshake(1, std::chrono::seconds(3), &second));
    EXPECT_NE(run.hello.identifier, second.identifier);
    EXPECT_EQ(read_file(daily_log_path()).find("[WARN]"), std::string::npos);

    const int port = server.port();
    server.stopListening();
    server.close(1);
    sleep(3);
    ASSERT_TRUE(server.listen(port));
    ASSERT_TRUE(server.waitForHandshake(2, std::chrono::seconds(3)));
    std::string text = read_file(daily_log_path());
    const int warnings = count_of(text, "] : [WARN] disconnected \r\n");
    EXPECT_TRUE(warnings >= 2 && warnings <= 4) << text;
    EXPECT_TRUE(run.daemon->running());
}
