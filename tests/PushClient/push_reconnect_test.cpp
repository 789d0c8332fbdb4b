// An application that reconnects from inside onDisconnected, as the daemon does, against a
// server that closes every connection: no descriptor or socket may pile up.
#include <dirent.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "PushClient/BasePushClient.h"
#include "PushClient/PushClient.h"
#include "tests/PushClient/recording_client.h"
#include "tools/pushserver/push_server.h"

using namespace std::chrono_literals;
using pushserver::PushServer;

namespace {

int openDescriptors() {
    int count = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (dir != nullptr && readdir(dir) != nullptr) {
        ++count;
    }
    if (dir != nullptr) {
        closedir(dir);
    }
    return count;
}

class Reconnecting : public PushClient {
public:
    explicit Reconnecting(int port) : serverPort(port) {}

    void onDisconnected() override {
        ++losses;
        while (!quitting && !connect("127.0.0.1", serverPort, "BOX", "10", "vintrago")) {
            std::this_thread::sleep_for(10ms);
        }
    }
    void onReceive(const char*) override { ++received; }

    int serverPort;
    std::atomic<bool> quitting{false};
    std::atomic<int> losses{0};
    std::atomic<int> received{0};
};

Client& sessionOf(PushClient& facade) {
    return *static_cast<Client*>(facade.client);
}

}  // namespace

TEST(PushReconnectTest, ThousandServerClosesKeepDescriptorsFlat) {
    const int rounds = 1000;
    PushServer server;
    ASSERT_TRUE(server.listen());
    Reconnecting& app = keepForProcess(new Reconnecting(server.port()));
    int baseline = openDescriptors();

    ASSERT_TRUE(app.connect("127.0.0.1", server.port(), "BOX", "10", "vintrago"));
    int peak = 0;
    for (int i = 0; i < rounds; ++i) {
        ASSERT_TRUE(server.waitForHandshake(static_cast<size_t>(i), 10s)) << "round " << i;
        if (i % 100 == 0) {
            ASSERT_TRUE(server.sendFrame(static_cast<size_t>(i), "#1:hello"));
        }
        ASSERT_TRUE(server.close(static_cast<size_t>(i)));
        peak = std::max(peak, openDescriptors());
    }
    ASSERT_TRUE(server.waitForHandshake(rounds, 10s));
    app.quitting = true;
    app.disconnect();

    // The client's socket and the server's end of the last connection.
    EXPECT_LE(peak, baseline + 4);
    EXPECT_TRUE(server.close(rounds));
    int settled = openDescriptors();
    for (int i = 0; i < 100 && settled != baseline; ++i) {
        std::this_thread::sleep_for(20ms);
        settled = openDescriptors();
    }
    EXPECT_EQ(baseline, settled);
    EXPECT_EQ(rounds, app.losses);
    EXPECT_EQ(rounds / 100, app.received);
    EXPECT_TRUE(sessionOf(app).stopped);
}

namespace {

// Connects twice from one onDisconnected, as an application that reconnects in both onError
// and onDisconnected does after an error.
class DoubleReconnecting : public RecordingClient {
public:
    explicit DoubleReconnecting(int port) : serverPort(port) {}

    void onDisconnected() override {
        RecordingClient::onDisconnected();
        if (rounds++ == 0) {
            connect("127.0.0.1", serverPort, "BOX", "10", "L");
            connect("127.0.0.1", serverPort, "BOX", "10", "L");
        }
    }

    int serverPort;
    std::atomic<int> rounds{0};
};

}  // namespace

TEST(PushReconnectTest, SecondConnectInARowRetiresTheFirstQuietly) {
    PushServer server;
    ASSERT_TRUE(server.listen());
    DoubleReconnecting& app = keepForProcess(new DoubleReconnecting(server.port()));
    int baseline = openDescriptors();
    ASSERT_TRUE(app.connect("127.0.0.1", server.port(), "BOX", "10", "L"));
    ASSERT_TRUE(server.waitForHandshake(0, 5s));
    ASSERT_TRUE(server.close(0));

    ASSERT_TRUE(server.waitForHandshake(2, 5s));
    // The replaced connection is closed by the client and its reader ends without an event.
    EXPECT_TRUE(server.waitForPeerClose(1, 5s));
    server.sendFrame(1, "#1:lost");  // nobody reads the replaced connection any more
    ASSERT_TRUE(server.sendFrame(2, "#1:one"));
    ASSERT_TRUE(server.sendFrame(2, "#1:two"));
    std::vector<std::string> expected = {"disconnected", "receive:one", "receive:two"};
    EXPECT_EQ(expected, app.waitForEvents(3, 5s));
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(expected, app.eventsSoFar());

    app.disconnect();
    server.close(1);
    server.close(2);
    int settled = openDescriptors();
    for (int i = 0; i < 100 && settled != baseline; ++i) {
        std::this_thread::sleep_for(20ms);
        settled = openDescriptors();
    }
    EXPECT_EQ(baseline, settled);
}
