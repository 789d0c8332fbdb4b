// The push client end to end against the scripted push server on 127.0.0.1: the handshake on
// the wire, frame parsing and dispatch, the threads events run on, and stopping a session.
#include <chrono>
#include <regex>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "PushClient/BasePushClient.h"
#include "tavik/tk_socket.h"
#include "tests/PushClient/recording_client.h"
#include "tools/pushserver/push_server.h"

using namespace std::chrono_literals;
using pushserver::Handshake;
using events = std::vector<std::string>;

namespace {

class PushSessionTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(server.listen()); }
    void TearDown() override { client.disconnect(); }

    bool connect(const char* login = "L") {
        return client.connect("127.0.0.1", server.port(), "BOX", "10", login);
    }
    void connectAndShake(size_t conn, Handshake* shake = nullptr) {
        ASSERT_TRUE(connect());
        ASSERT_TRUE(server.waitForHandshake(conn, 5s, shake));
    }
    // The bytes connection conn has sent once n of them arrived and nothing more followed.
    std::string sentBy(size_t conn, size_t n) {
        EXPECT_TRUE(server.waitForBytes(conn, n, 5s));
        std::this_thread::sleep_for(50ms);
        return server.received(conn);
    }

    pushserver::PushServer server;
    RecordingClient& client = keepForProcess(new RecordingClient);
};

}  // namespace

TEST_F(PushSessionTest, HandshakeIsExactAndEachConnectPresentsANewIdentifier) {
    Handshake first, second;
    connectAndShake(0, &first);
    EXPECT_TRUE(std::regex_match(first.identifier, std::regex("[0-9a-f]{32}")));
    client.disconnect();
    ASSERT_TRUE(server.waitForPeerClose(0, 5s));
    ASSERT_TRUE(client.reconnect());  // the stored values again, under a new identifier
    ASSERT_TRUE(server.waitForHandshake(1, 5s, &second));
    EXPECT_NE(first.identifier, second.identifier);

    // Nothing but the handshake is ever sent, whatever the server says.
    ASSERT_TRUE(server.sendFrame(1, "#1:x"));
    client.waitForEvents(1, 5s);
    EXPECT_EQ("BOX:(" + first.identifier + ")10\nL\n\n", server.received(0));
    EXPECT_EQ("BOX:(" + second.identifier + ")10\nL\n\n", server.received(1));
}

TEST_F(PushSessionTest, HandshakeStopsBeforeAnEighthBitByteAndIsBounded) {
    ASSERT_TRUE(connect("ab\xe9zz"));
    std::string sent = sentBy(0, 43);
    EXPECT_EQ(43u, sent.size());
    EXPECT_EQ("\nab", sent.substr(40));
    client.disconnect();

    ASSERT_TRUE(connect(std::string(3000, 'x').c_str()));
    EXPECT_EQ(std::string(2043 - 41, 'x'), sentBy(1, 2043).substr(41));
}

TEST_F(PushSessionTest, FramesRaiseEventsInOrderOnOneReceiveThread) {
    connectAndShake(0);
    for (const char* body : {"#1:integrity hello", "#2:true:ab", "#2:TRUE:x", "#2:True",
                             "#2:nope:y", "#1:a:b", "#7:x", "#:x", "#no colon"}) {
        ASSERT_TRUE(server.sendFrame(0, body));
    }
    ASSERT_TRUE(server.sendRaw(0, "0000"));
    ASSERT_TRUE(server.sendRaw(0, "abcd"));
    ASSERT_TRUE(server.sendRaw(0, std::string("0006#1:a\0b", 10)));
    ASSERT_TRUE(server.sendFrameBytewise(0, "#1:byte by byte", 2ms));
    ASSERT_TRUE(server.sendFrameSplit(0, "#2:true:tok", {2}, 1100ms));  // across a read wait

    events expected = {
        "receive:integrity hello", "auth:passed:ab", "auth:passed:x", "auth:passed:",
        "auth:failed:y",           "receive:a:b",    "receive:a",     "receive:byte by byte",
        "auth:passed:tok"};
    EXPECT_EQ(expected, client.waitForEvents(expected.size(), 5s));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(expected, client.eventsSoFar());
    std::vector<std::thread::id> threads = client.eventThreads();
    for (std::thread::id t : threads) {
        EXPECT_EQ(threads[0], t);
        EXPECT_NE(std::this_thread::get_id(), t);
    }
}

TEST_F(PushSessionTest, PeerCloseOrResetRaisesDisconnectedOnce) {
    connectAndShake(0);
    ASSERT_TRUE(server.close(0));
    EXPECT_EQ(events{"disconnected"}, client.waitForEvents(1, 5s));
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(events{"disconnected"}, client.eventsSoFar());

    connectAndShake(1);  // releases the socket of the lost connection
    ASSERT_TRUE(server.reset(1));
    EXPECT_EQ(events(2, "disconnected"), client.waitForEvents(2, 5s));
}

TEST_F(PushSessionTest, DisconnectEndsAnIdleSessionQuietlyAndAFreshFacadeAtOnce) {
    connectAndShake(0);
    std::this_thread::sleep_for(300ms);
    auto start = std::chrono::steady_clock::now();
    client.disconnect();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1600ms);
    EXPECT_TRUE(server.waitForPeerClose(0, 5s));
    std::this_thread::sleep_for(200ms);
    EXPECT_TRUE(client.eventsSoFar().empty());

    RecordingClient fresh;
    start = std::chrono::steady_clock::now();
    fresh.disconnect();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
}

TEST_F(PushSessionTest, DefaultHandlersIgnoreEventsTheApplicationDoesNotTake) {
    struct OnlyReceives : PushClient {
        void onReceive(const char*) override { ++received; }
        std::atomic<int> received{0};
    };
    OnlyReceives& app = keepForProcess(new OnlyReceives);
    ASSERT_TRUE(app.connect("127.0.0.1", server.port(), "BOX", "10", "L"));
    ASSERT_TRUE(server.waitForHandshake(0, 5s));
    ASSERT_TRUE(server.sendFrame(0, "#2:false:t"));
    ASSERT_TRUE(server.sendFrame(0, "#1:m"));
    ASSERT_TRUE(server.close(0));  // onDisconnected
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(1, app.received);
}
