// Applications that reconnect from inside onDisconnected, as the daemon does, against a
// server that closes their connections: no descriptor, socket or reader may pile up.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "tests/PushClient/recording_client.h"
#include "tools/pushserver/push_server.h"

using namespace std::chrono_literals;

namespace {

int openDescriptors() {
    return int(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// True once the descriptor count came back to `baseline`, within 2 s.
bool descriptorsBackTo(int baseline) {
    for (int i = 0; i < 100 && openDescriptors() != baseline; ++i) {
        std::this_thread::sleep_for(20ms);
    }
    return openDescriptors() == baseline;
}

// Reconnects until it succeeds on every loss; after an error it would connect twice in a row
// (from onError and from onDisconnected), which `twice` imitates on the first loss.
class Reconnecting : public RecordingClient {
public:
    Reconnecting(int port, bool twice) : port(port), twice(twice) {}

    void onDisconnected() override {
        RecordingClient::onDisconnected();
        if (twice) {
            if (losses++ == 0) {
                connect("127.0.0.1", port, "BOX", "10", "L");
                connect("127.0.0.1", port, "BOX", "10", "L");
            }
            return;
        }
        while (!quitting && !connect("127.0.0.1", port, "BOX", "10", "L")) {
            std::this_thread::sleep_for(10ms);
        }
    }

    int port;
    bool twice;
    std::atomic<bool> quitting{false};
    std::atomic<int> losses{0};
};

}  // namespace

TEST(PushReconnectTest, ThousandServerClosesKeepDescriptorsFlat) {
    const size_t rounds = 1000;
    pushserver::PushServer server;
    ASSERT_TRUE(server.listen());
    Reconnecting& app = keepForProcess(new Reconnecting(server.port(), false));
    int baseline = openDescriptors();

    ASSERT_TRUE(app.connect("127.0.0.1", server.port(), "BOX", "10", "L"));
    int peak = 0;
    for (size_t i = 0; i < rounds; ++i) {
        ASSERT_TRUE(server.waitForHandshake(i, 10s)) << "round " << i;
        if (i % 100 == 0) {
            ASSERT_TRUE(server.sendFrame(i, "#1:hello"));
        }
        ASSERT_TRUE(server.close(i));
        peak = std::max(peak, openDescriptors());
    }
    ASSERT_TRUE(server.waitForHandshake(rounds, 10s));
    app.quitting = true;
    app.disconnect();
    EXPECT_LE(peak, baseline + 4);  // the client's socket and the server's end, twice at most
    EXPECT_TRUE(server.close(rounds));
    EXPECT_TRUE(descriptorsBackTo(baseline))
        << openDescriptors() << " open, " << baseline << " before";
    std::vector<std::string> seen = app.eventsSoFar();
    EXPECT_EQ(rounds, size_t(std::count(seen.begin(), seen.end(), "disconnected")));
    EXPECT_EQ(rounds / 100, size_t(std::count(seen.begin(), seen.end(), "receive:hello")));
}

TEST(PushReconnectTest, SecondConnectInARowRetiresTheFirstQuietly) {
    pushserver::PushServer server;
    ASSERT_TRUE(server.listen());
    Reconnecting& app = keepForProcess(new Reconnecting(server.port(), true));
    int baseline = openDescriptors();
    ASSERT_TRUE(app.connect("127.0.0.1", server.port(), "BOX", "10", "L"));
    ASSERT_TRUE(server.waitForHandshake(0, 5s));
    ASSERT_TRUE(server.close(0));

    ASSERT_TRUE(server.waitForHandshake(2, 5s));
    // The client closes the replaced connection and its reader ends without an event.
    EXPECT_TRUE(server.waitForPeerClose(1, 5s));
    server.sendFrame(1, "#1:lost");
    ASSERT_TRUE(server.sendFrame(2, "#1:one"));
    std::vector<std::string> expected = {"disconnected", "receive:one"};
    EXPECT_EQ(expected, app.waitForEvents(2, 5s));
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(expected, app.eventsSoFar());

    app.disconnect();
    server.close(1);
    server.close(2);
    EXPECT_TRUE(descriptorsBackTo(baseline))
        << openDescriptors() << " open, " << baseline << " before";
}
