// The push client: message parsing and the inbound text filter, then end to end against the
// scripted push server on 127.0.0.1: the handshake on the wire, frame dispatch, the threads
// events run on, stopping a session, and an application that reconnects from inside
// onDisconnected, as the daemon does, while the server closes its connections: no descriptor,
// socket or reader may pile up. (The receive loop's framing is fuzzed by fuzz/frames_fuzz.)
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "PushClient/BasePushClient.h"
#include "PushClient/PushClient.h"
#include "tavik/tk_common.h"
#include "tests/support/hostile_run.h"

using namespace std::chrono_literals;
using pushserver::Handshake;
using events = std::vector<std::string>;

namespace {

// Receive threads are detached and touch their session until they have wholly ended, so the
// tests keep every connected facade until the process ends, as the daemon keeps its own.
template <class T>
T& keepForProcess(T* facade) {
    static std::vector<T*>* kept = new std::vector<T*>;
    kept->push_back(facade);
    return *facade;
}

// Records every event with the thread it ran on; the test may wait for a number of events.
class RecordingClient : public PushClient {
public:
    void onDisconnected() override { record("disconnected"); }
    void onError(const char* message) override { record(std::string("error:") + message); }
    void onAuthResult(bool passed, const char* token) override {
        record(std::string("auth:") + (passed ? "passed:" : "failed:") + token);
    }
    void onReceive(const char* message) override { record(std::string("receive:") + message); }

    // Waits until at least n events have arrived; returns all events seen so far.
    events waitForEvents(size_t n, std::chrono::milliseconds limit) {
        std::unique_lock<std::mutex> guard(lock);
        changed.wait_for(guard, limit, [&] { return seen.size() >= n; });
        return seen;
    }
    events eventsSoFar() { return waitForEvents(0, {}); }
    std::vector<std::thread::id> eventThreads() {
        std::lock_guard<std::mutex> guard(lock);
        return threads;
    }

private:
    void record(const std::string& event) {
        std::lock_guard<std::mutex> guard(lock);
        seen.push_back(event);
        threads.push_back(std::this_thread::get_id());
        changed.notify_all();
    }

    std::mutex lock;
    std::condition_variable changed;
    events seen;
    std::vector<std::thread::id> threads;
};

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

int openDescriptors() {
    return hoxen_test::footprint_of(getpid()).fds;
}

// True once the descriptor count came back to `baseline`, within 2 s.
bool descriptorsBackTo(int baseline) {
    return hoxen_test::wait_until([&] { return openDescriptors() == baseline; }, 2);
}

// Connects again from inside onDisconnected, as the daemon does, until it succeeds.
class Reconnecting : public RecordingClient {
public:
    explicit Reconnecting(int port) : port(port) {}
    void onDisconnected() override {
        RecordingClient::onDisconnected();
        while (!quitting && !connect("127.0.0.1", port, "BOX", "10", "L")) {
            std::this_thread::sleep_for(10ms);
        }
    }
    int port;
    std::atomic<bool> quitting{false};
};

// "result|output|bytes consumed" of utf2ansi with `capacity` bytes of output room.
std::string utf2ansiOf(std::string in, int capacity = 64) {
    unsigned char out[64] = {};
    int outLen = capacity, inLen = static_cast<int>(in.size());
    int result = utf2ansi(out, &outLen, reinterpret_cast<unsigned char*>(&in[0]), &inLen);
    return std::to_string(result) + "|" + std::string(reinterpret_cast<char*>(out), outLen) + "|" +
           std::to_string(inLen);
}

}  // namespace

TEST(PushMessageTest, SkipsTheLeadingCharacterAndSplitsAtTheFirstColon) {
    std::tuple<const char*, int, const char*> cases[] = {
        {"#1:integrity hello", 1, "integrity hello"},
        {"#1:a:b", 1, "a:b"},
        {"12:x", 2, "x"},
        {"#:x", 0, "x"},
        {"#7:", 7, ""},
        {"#99999999999999999999:x", 0, "x"},  // out of range: no code
    };
    for (auto [body, code, message] : cases) {
        PushMessage m;
        m.set(body);
        EXPECT_EQ(code, m.taskCode) << body;
        EXPECT_STREQ(message, m.message.get()) << body;
    }
}

// The outbound filter, ansi2utf, is checked on the wire by the handshake test.
TEST(CharsetTest, Utf2ansiFoldsSevenBitSequencesOnly) {
    EXPECT_EQ("-2||0", utf2ansiOf("\xc3\xa9"));
    EXPECT_EQ("-2||0", utf2ansiOf("\xf8"));
    EXPECT_EQ("0|A|2", utf2ansiOf("\xc1\x81"));  // overlong
    EXPECT_EQ("0|\x03|2", utf2ansiOf("\xc3\x41"));
    EXPECT_EQ("-2|ok|2", utf2ansiOf("ok\x80"));
    EXPECT_EQ("0|a|1", utf2ansiOf("a\xe0\x80"));  // a 3-byte lead with one byte left
    EXPECT_EQ("0|ab|2", utf2ansiOf("abc", 2));
    int outLen = 5, inLen = 5;
    unsigned char out[5];
    EXPECT_EQ(0, utf2ansi(out, &outLen, nullptr, &inLen));
    EXPECT_EQ(0, outLen + inLen);
}

TEST_F(PushSessionTest, HandshakeIsExactNewForEachConnectAndCutToSevenBitText) {
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
    client.disconnect();

    // Sent up to a byte above 0x7F, and never more than 2043 bytes.
    ASSERT_TRUE(connect("ab\xe9zz"));
    std::string sent = sentBy(2, 43);
    EXPECT_EQ(43u, sent.size());
    EXPECT_EQ("\nab", sent.substr(40));
    client.disconnect();
    ASSERT_TRUE(connect(std::string(3000, 'x').c_str()));
    EXPECT_EQ(std::string(2043 - 41, 'x'), sentBy(3, 2043).substr(41));
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

TEST_F(PushSessionTest, ConnectRetiresTheConnectionBeforeAndDisconnectEndsTheLastQuietly) {
    const int baseline = openDescriptors();
    connectAndShake(0);
    connectAndShake(1);
    // The client closes the replaced connection and its reader ends without an event.
    EXPECT_TRUE(server.waitForPeerClose(0, 5s));
    server.sendFrame(0, "#1:lost");
    ASSERT_TRUE(server.sendFrame(1, "#1:one"));
    EXPECT_EQ(events{"receive:one"}, client.waitForEvents(1, 5s));
    std::this_thread::sleep_for(1500ms);
    // Idle, the session is stopped from this thread within about 1.5 s, without an event.
    auto start = std::chrono::steady_clock::now();
    client.disconnect();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1600ms);
    EXPECT_TRUE(server.waitForPeerClose(1, 5s));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(events{"receive:one"}, client.eventsSoFar());
    server.close(0);
    server.close(1);
    EXPECT_TRUE(descriptorsBackTo(baseline)) << openDescriptors() << " open, " << baseline;

    RecordingClient fresh;  // never connected: stopped at once
    start = std::chrono::steady_clock::now();
    fresh.disconnect();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
}

TEST(PushStartTest, HandshakeFailingBeforeAnyReceiveThreadFailsTheConnectAtOnce) {
    pushserver::PushServer server;
    ASSERT_TRUE(server.listen());
    RecordingClient& app = keepForProcess(new RecordingClient);
    auto done = std::make_shared<std::promise<bool>>();
    std::future<bool> connected = done->get_future();
    {
        // The handshake's identifier is a scratch text: holding the pool's lock parks the
        // client between its TCP connect and its send while the server resets the connection.
        tavik::_objBlocking parked(&tavik::g_rav.sync);
        std::thread([&app, done, port = server.port()] {
            done->set_value(app.connect("127.0.0.1", port, "BOX", "10", "L"));
        }).detach();
        ASSERT_TRUE(server.waitForConnections(1, 5s));
        ASSERT_TRUE(server.reset(0));
        std::this_thread::sleep_for(100ms);
    }
    // No receive thread exists that could report having stopped: nothing to wait for.
    ASSERT_EQ(std::future_status::ready, connected.wait_for(2s)) << "connect still waits";
    EXPECT_FALSE(connected.get());
    EXPECT_EQ("", server.received(0));
    ASSERT_TRUE(app.connect("127.0.0.1", server.port(), "BOX", "10", "L"));
    EXPECT_TRUE(server.waitForHandshake(1, 5s));
    app.disconnect();
}

TEST(PushReconnectTest, ThousandServerClosesKeepDescriptorsFlat) {
    const size_t rounds = 1000;
    pushserver::PushServer server;
    ASSERT_TRUE(server.listen());
    Reconnecting& app = keepForProcess(new Reconnecting(server.port()));
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
    events seen = app.eventsSoFar();
    EXPECT_EQ(rounds, size_t(std::count(seen.begin(), seen.end(), "disconnected")));
    EXPECT_EQ(rounds / 100, size_t(std::count(seen.begin(), seen.end(), "receive:hello")));
}
