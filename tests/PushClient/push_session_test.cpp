// The push client end to end against the scripted push server on 127.0.0.1: the handshake on
// the wire, frame parsing and dispatch, the threads events run on, and stopping a session.
#include <chrono>
#include <memory>
#include <regex>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "PushClient/BasePushClient.h"
#include "PushClient/PushClient.h"
#include "tavik/tk_socket.h"
#include "tests/PushClient/recording_client.h"
#include "tools/pushserver/push_server.h"

using namespace std::chrono_literals;
using pushserver::Handshake;
using pushserver::PushServer;
using steadyClock = std::chrono::steady_clock;
using events = std::vector<std::string>;

namespace {

class OnlyReceives : public PushClient {
public:
    void onReceive(const char*) override { ++received; }
    std::atomic<int> received{0};
};

Client& sessionOf(PushClient& facade) {
    return *static_cast<Client*>(facade.client);
}

class PushSessionTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(server.listen()); }
    void TearDown() override { client.disconnect(); }

    bool connect(const char* login = "L") {
        return client.connect("127.0.0.1", server.port(), "BOX", "10", login);
    }

    // Connects and waits for the server to see connection conn's handshake.
    void connectAndShake(size_t conn, Handshake* shake = nullptr) {
        ASSERT_TRUE(connect());
        ASSERT_TRUE(server.waitForHandshake(conn, 5s, shake));
    }

    PushServer server;
    RecordingClient& client = keepForProcess(new RecordingClient);
};

}  // namespace

TEST_F(PushSessionTest, HandshakeIsExactAndEachConnectPresentsANewIdentifier) {
    Handshake first;
    connectAndShake(0, &first);
    EXPECT_TRUE(std::regex_match(first.identifier, std::regex("[0-9a-f]{32}")));
    EXPECT_EQ("BOX:(" + first.identifier + ")10\nL\n\n", server.received(0));
    EXPECT_TRUE(sessionOf(client).connected);

    client.disconnect();
    EXPECT_TRUE(server.waitForPeerClose(0, 5s));
    ASSERT_TRUE(client.reconnect());
    Handshake second;
    ASSERT_TRUE(server.waitForHandshake(1, 5s, &second));
    EXPECT_EQ("BOX:(" + second.identifier + ")10\nL\n\n", server.received(1));
    EXPECT_NE(first.identifier, second.identifier);

    // Nothing but the handshake is ever sent, whatever the server says.
    ASSERT_TRUE(server.sendFrame(1, "#1:x"));
    client.waitForEvents(1, 5s);
    EXPECT_EQ("BOX:(" + first.identifier + ")10\nL\n\n", server.received(0));
    EXPECT_EQ("BOX:(" + second.identifier + ")10\nL\n\n", server.received(1));
}

TEST_F(PushSessionTest, HandshakeStopsBeforeAnEighthBitByteAndIsBounded) {
    ASSERT_TRUE(connect("ab\xe9zz"));
    ASSERT_TRUE(server.waitForBytes(0, 43, 5s));
    std::this_thread::sleep_for(50ms);
    std::string sent = server.received(0);
    EXPECT_EQ(43u, sent.size());
    EXPECT_EQ("\nab", sent.substr(sent.size() - 3));
    client.disconnect();

    std::string longLogin(3000, 'x');
    ASSERT_TRUE(connect(longLogin.c_str()));
    ASSERT_TRUE(server.waitForBytes(1, 2043, 5s));
    std::this_thread::sleep_for(50ms);
    sent = server.received(1);
    EXPECT_EQ(2043u, sent.size());
    EXPECT_EQ(std::string(2043 - 41, 'x'), sent.substr(41));
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
    ASSERT_TRUE(server.sendFrame(0, "#1:last"));

    events expected = {
        "receive:integrity hello", "auth:passed:ab", "auth:passed:x", "auth:passed:",
        "auth:failed:y",           "receive:a:b",    "receive:a",     "receive:last"};
    EXPECT_EQ(expected, client.waitForEvents(expected.size(), 5s));
    std::vector<std::thread::id> threads = client.eventThreads();
    ASSERT_FALSE(threads.empty());
    for (std::thread::id t : threads) {
        EXPECT_EQ(threads[0], t);
        EXPECT_NE(std::this_thread::get_id(), t);
    }
}

TEST_F(PushSessionTest, FramesInPiecesAreDispatchedOnce) {
    connectAndShake(0);
    ASSERT_TRUE(server.sendFrameSplit(0, "#1:split frame", {1, 3, 2, 5}, 5ms));
    ASSERT_TRUE(server.sendFrameBytewise(0, "#1:byte by byte", 2ms));
    ASSERT_TRUE(server.sendFrameSplit(0, "#2:true:tok", {2}, 1100ms));  // across a read wait
    events expected = {"receive:split frame", "receive:byte by byte", "auth:passed:tok"};
    EXPECT_EQ(expected, client.waitForEvents(3, 5s));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(expected, client.eventsSoFar());
}

TEST_F(PushSessionTest, PeerCloseRaisesDisconnectedOnce) {
    connectAndShake(0);
    ASSERT_TRUE(server.sendFrame(0, "#1:before"));
    ASSERT_TRUE(server.close(0));
    events expected = {"receive:before", "disconnected"};
    EXPECT_EQ(expected, client.waitForEvents(2, 5s));
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(expected, client.eventsSoFar());
    EXPECT_TRUE(sessionOf(client).stopped);
    // The lost connection keeps its socket and its flag until the application acts.
    EXPECT_TRUE(sessionOf(client).connected);
    EXPECT_NE(nullptr, sessionOf(client).sock);

    connectAndShake(1);  // releases the socket left over
    ASSERT_TRUE(server.reset(1));
    expected.push_back("disconnected");
    EXPECT_EQ(expected, client.waitForEvents(3, 5s));
}

TEST_F(PushSessionTest, DisconnectFromAnotherThreadEndsAnIdleSessionQuietly) {
    connectAndShake(0);
    std::this_thread::sleep_for(300ms);
    steadyClock::time_point start = steadyClock::now();
    client.disconnect();
    EXPECT_LT(steadyClock::now() - start, 3s);
    EXPECT_TRUE(sessionOf(client).stopped);
    EXPECT_TRUE(sessionOf(client).stopRequested);
    EXPECT_EQ(nullptr, sessionOf(client).sock);
    EXPECT_TRUE(server.waitForPeerClose(0, 5s));
    std::this_thread::sleep_for(200ms);
    EXPECT_TRUE(client.eventsSoFar().empty());

    client.disconnect();  // already stopped: returns at once
    RecordingClient fresh;
    start = steadyClock::now();
    fresh.disconnect();
    EXPECT_LT(steadyClock::now() - start, 500ms);
    EXPECT_TRUE(sessionOf(fresh).stopRequested);
    EXPECT_FALSE(sessionOf(fresh).stopped);
}

TEST_F(PushSessionTest, ConnectToAClosedPortFailsWithoutAThread) {
    server.stopListening();
    EXPECT_FALSE(connect());
    EXPECT_EQ(nullptr, sessionOf(client).sock);
    EXPECT_FALSE(sessionOf(client).connected);
    EXPECT_FALSE(client.reconnect());
    std::this_thread::sleep_for(100ms);
    EXPECT_TRUE(client.eventsSoFar().empty());
    EXPECT_EQ(0u, server.connectionCount());
}

TEST_F(PushSessionTest, ApplicationWithOnlyOnReceiveIgnoresOtherEvents) {
    OnlyReceives& app = keepForProcess(new OnlyReceives);
    ASSERT_TRUE(app.connect("127.0.0.1", server.port(), "BOX", "10", "L"));
    ASSERT_TRUE(server.waitForHandshake(0, 5s));
    ASSERT_TRUE(server.sendFrame(0, "#2:false:t"));
    ASSERT_TRUE(server.sendFrame(0, "#1:m"));
    ASSERT_TRUE(server.close(0));
    for (int i = 0; i < 100 && !sessionOf(app).stopped; ++i) {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_TRUE(sessionOf(app).stopped);
    EXPECT_EQ(1, app.received);
    app.disconnect();
}

TEST_F(PushSessionTest, WriteAfterServerResetFailsWithoutSignal) {
    tavik::socks sock;
    ASSERT_EQ(1, sock.connect("127.0.0.1", static_cast<unsigned int>(server.port())));
    ASSERT_TRUE(server.waitForConnections(1, 5s));
    ASSERT_TRUE(server.reset(0));
    std::this_thread::sleep_for(50ms);
    ssize_t result = 0;
    for (int i = 0; i < 3 && result >= 0; ++i) {
        result = sock.send("x", 1);
    }
    EXPECT_EQ(-1, result);
}
