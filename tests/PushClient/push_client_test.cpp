// The push client: the text filters, the receive loop on scripted reads (parsing, dispatch,
// every way the loop ends), then end to end against the push server on 127.0.0.1: handshake,
// event thread, stopping, and reconnects from inside onDisconnected with no descriptor piling up.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <future>
#include <mutex>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "PushClient/BasePushClient.h"
#include "PushClient/PushClient.h"
#include "tavik/tk_common.h"
#include "tests/support/daemon_harness.h"

using namespace std::chrono_literals;
using hoxen_test::descriptor_count;
using hoxen_test::wait_until;
using events = std::vector<std::string>;

namespace {

// Records every event and its thread; a test may wait for a number of them. With a port set,
// it connects again from inside onDisconnected, as the daemon does, until it succeeds or quits.
class RecordingClient : public PushClient {
public:
    void onDisconnected() override {
        record("disconnected");
        while (port != 0 && !quitting && !connect("127.0.0.1", port, "BOX", "10", "L"))
            std::this_thread::sleep_for(10ms);
        ++reconnects;
    }
    void onError(const char* message) override { record(std::string("error:") + message); }
    void onAuthResult(bool passed, const char* token) override {
        record(std::string("auth:") + (passed ? "passed:" : "failed:") + token);
    }
    // The message "throw" makes the handler throw once it is recorded, "stop" disconnect.
    void onReceive(const char* message) override {
        record(std::string("receive:") + message);
        if (std::string(message) == "throw")
            throw std::runtime_error(message);
        if (std::string(message) == "stop")
            disconnect();
    }

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

    std::atomic<int> port{0};
    std::atomic<bool> quitting{false};
    std::atomic<size_t> reconnects{0};  // handlers returned, their connect() wholly done

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
    void connectAndShake(size_t conn, pushserver::Handshake* shake = nullptr) {
        ASSERT_TRUE(connect());
        ASSERT_TRUE(server.waitForHandshake(conn, 5s, shake));
    }

    pushserver::PushServer server;
    // Detached receive threads touch their session to their end: facades live as long as we do.
    inline static std::vector<RecordingClient*>* kept = new std::vector<RecordingClient*>;
    RecordingClient& client = *kept->emplace_back(new RecordingClient);
};

// The receive loop of a session that never connected (so _disconnect returns at once) on a
// script instead of a socket. Each step answers one read: bytes (as many as asked, the rest
// waits for the next read), "~" a time-out, "-" an error, "!" a throw, "" or the script's end
// the peer's close. A step may start with "^" (stop requested during the read), "@" (socket
// taken away with it) or "%" (connected cleared). The trace: each read by the count asked
// ("?" after it unless the wait is 1 s 0 ms), the events, then connected and stopRequested.
// `release`, after 300 ms on another thread: 's' requests a stop, 'c' sets connected.
std::string scripted(std::vector<std::string> steps, bool connected, std::string release) {
    RecordingClient app;
    Client& session = *static_cast<Client*>(app.client);
    session.connected = session.connected || connected;  // else as a new session has it
    std::string trace;
    size_t next = 0, shown = 0;
    bool taken = false;
    auto show = [&] {
        for (events seen = app.eventsSoFar(); shown < seen.size(); ++shown)
            trace += "[" + seen[shown] + "] ";
    };
    const auto start = std::chrono::steady_clock::now();
    std::thread releaser([&] {
        std::this_thread::sleep_until(start + (release.empty() ? 0ms : 300ms));
        for (char flag : release) (flag == 's' ? session.stopRequested : session.connected) = true;
    });
    auto read = [&](char* buf, unsigned n, long sec, long msec) -> ssize_t {
        show();
        trace += std::to_string(n) + (sec == 1 && msec == 0 ? " " : "? ");
        std::string& step = next < steps.size() ? steps[next] : steps.emplace_back();
        for (; step[0] == '^' || step[0] == '@' || step[0] == '%'; step.erase(0, 1)) {
            session.stopRequested = session.stopRequested || step[0] == '^';
            taken = taken || step[0] == '@';
            session.connected = session.connected && step[0] != '%';
        }
        if (step.empty() || step == "~" || step == "-" || step == "!") {
            if (steps[next++] == "!")
                throw std::runtime_error("read");
            return step.empty() ? 0 : step == "~" ? tavik::sErrTimeout : -1;
        }
        const size_t k = step.copy(buf, n);
        step.erase(0, k);
        next += step.empty();
        return ssize_t(k);
    };
    session.receiveFrames({read, [&] { return !taken; }});
    if (!release.empty() && std::chrono::steady_clock::now() - start > 800ms)
        trace += "(slow) ";
    releaser.join();
    show();
    return trace + "c" + std::to_string(session.connected) + " s" +
           std::to_string(session.stopRequested);
}

}  // namespace

TEST(ReceiveLoopTest, ReadsFramesAndEndsEachWayWithItsOwnEvents) {
    using pushserver::frame;
    const std::string error = "[error:Unsupported encoding exception has occurred] ";
    struct {
        std::vector<std::string> steps;
        std::string trace;
        bool connected = true;
        std::string release = "";
    } cases[] = {
        // The first character is skipped, the code ends at the first colon; headers that are
        // no number announce no body; time-outs only wait longer.
        {{frame("#1:integrity hello") + frame("#2:true:ab"), "0000abcd",
          frame("#7:") + frame("#:x") + frame("12:x") + frame("#99999999999999999999:x"),
          frame(std::string("#1:a\0b", 6)), "~", "00", "~", "06#1:a:b",
          frame("#2:TRUE:x") + frame("#2:True") + frame("#2:nope:y") + frame("#no colon")},
         "4 18 [receive:integrity hello] 4 10 [auth:passed:ab] 4 4 4 3 4 3 4 4 [auth:failed:] 4 "
         "23 4 6 [receive:a] 4 4 2 2 6 [receive:a:b] 4 9 [auth:passed:x] 4 7 [auth:passed:] 4 9 "
         "[auth:failed:y] 4 9 4 [disconnected] c1 s0"},
        {{"00", "!"}, "4 2 [disconnected] c1 s1"},
        {{"0005#1", "!"}, "4 5 3 [disconnected] c0 s1"},
        {{"0005#1", "-"}, "4 5 3 [disconnected] c1 s0"},
        {{frame("#1:throw") + frame("#1:after")},
         "4 8 [receive:throw] " + error + "[disconnected] c0 s1"},
        {{frame("#1:stop") + frame("#1:after")}, "4 7 [receive:stop] c1 s1"},
        // Not connected: no error, and the idle wait ends on the stop.
        {{"%" + frame("#1:throw")}, "4 8 [receive:throw] c0 s1", true, "s"},
        {{}, "c0 s1", false, "s"},
        {{frame("#1:late")}, "4 7 [receive:late] 4 [disconnected] c1 s0", false, "c"},
        // A stop during a read ends quietly, whatever the read brought.
        {{"^~"}, "4 c1 s1"},
        {{"^0005#1:ab"}, "4 c1 s1"},
        {{"^"}, "4 c1 s1"},
        // A socket taken away ends the loop quietly, partial frames unread.
        {{"@00"}, "4 c1 s0"},
        {{"00", "@"}, "4 2 c1 s0"},
        {{"0005", "@#1:ab"}, "4 5 c1 s0"},
    };
    for (auto& c : cases) EXPECT_EQ(c.trace, scripted(c.steps, c.connected, c.release));
    // A new session is not connected, and its idle wait sleeps between looks at the flags:
    // 300 ms of waiting cost next to no CPU.
    const std::clock_t cpu = std::clock();
    EXPECT_EQ("[disconnected] c1 s1", scripted({}, false, "sc"));
    EXPECT_LT(std::clock() - cpu, CLOCKS_PER_SEC / 30);
}

// The outbound filter, ansi2utf, is checked on the wire by the handshake test.
TEST(CharsetTest, Utf2ansiFoldsSevenBitSequencesOnly) {
    // "result|output|bytes consumed" of `filter` on `in` with `room` bytes to write.
    auto filtered = [](auto filter, std::string in, int room) {
        unsigned char out[64] = {};
        int outLen = room, inLen = static_cast<int>(in.size());
        const int result = filter(out, &outLen, reinterpret_cast<unsigned char*>(&in[0]), &inLen);
        return std::to_string(result) + "|" + std::string(reinterpret_cast<char*>(out), outLen) +
               "|" + std::to_string(inLen);
    };
    for (auto [in, room, folded] : std::initializer_list<std::tuple<std::string, int, const char*>>{
             {"\xc3\xa9", 64, "-2||0"},
             {"\xc2\x80", 64, "-2||0"},
             {"\xf8", 64, "-2||0"},
             {"\xc1\x81", 64, "0|A|2"},  // overlong
             {"\xc0\x81", 64, "0|\x01|2"},
             {"\xc3\x41", 64, "0|\x03|2"},
             {"ok\x80", 64, "-2|ok|2"},
             {"a\xe0\x80", 64, "0|a|1"},  // a 3-byte lead with one byte left
             {"\xf7", 64, "0||0"},
             {"\xf1zzz", 64, "0|\x01zz|4"},  // the lead's own bits stand
             {"\xf0\x80\x81\x81z", 64, "0|Az|5"},  // overlong in four bytes
             {"abc", 2, "0|ab|2"}})
        EXPECT_EQ(folded, filtered(utf2ansi, in, room));
    int outLen = 5, inLen = 5;
    unsigned char out[5];
    EXPECT_EQ(0, utf2ansi(out, &outLen, nullptr, &inLen));
    EXPECT_EQ(0, outLen + inLen);
    // ansi2utf answers -1 at the first byte above 0x7F and leaves it unconsumed.
    EXPECT_EQ("-1|ok|2", filtered(ansi2utf, "ok\x80z", 16));
}

TEST_F(PushSessionTest, ConnectsAnewRetiringTheConnectionBeforeAndDisconnectsQuietly) {
    const int baseline = descriptor_count();
    pushserver::Handshake first, second;
    connectAndShake(0, &first);
    EXPECT_TRUE(std::regex_match(first.identifier, std::regex("[0-9a-f]{32}")));
    ASSERT_TRUE(server.sendFrame(0, "#2:true:ab"));
    ASSERT_TRUE(server.sendFrameBytewise(0, "#1:one", 2ms));
    events seen = {"auth:passed:ab", "receive:one"};
    EXPECT_EQ(seen, client.waitForEvents(2, 5s));
    // Events run on one thread, the session's own.
    std::vector<std::thread::id> threads = client.eventThreads();
    EXPECT_TRUE(threads[0] != std::this_thread::get_id() && threads[1] == threads[0]);
    std::this_thread::sleep_for(1500ms);
    // Idle, the session is stopped from this thread within about 1.5 s, without an event.
    const auto start = std::chrono::steady_clock::now();
    client.disconnect();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1600ms);
    EXPECT_TRUE(server.waitForPeerClose(0, 5s));

    ASSERT_TRUE(client.reconnect());  // the stored values again, under a new identifier
    ASSERT_TRUE(server.waitForHandshake(1, 5s, &second));
    EXPECT_NE(first.identifier, second.identifier);
    // A connect closes the connection before it; that reader ends without an event.
    connectAndShake(2);
    EXPECT_TRUE(server.waitForPeerClose(1, 5s));
    server.sendFrame(1, "#1:lost");
    ASSERT_TRUE(server.sendFrame(2, "#1:two"));
    seen.push_back("receive:two");
    EXPECT_EQ(seen, client.waitForEvents(3, 5s));
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(seen, client.eventsSoFar());
    // Nothing but the handshake is ever sent, whatever the server says.
    EXPECT_EQ("BOX:(" + first.identifier + ")10\nL\n\n", server.received(0));
    EXPECT_EQ("BOX:(" + second.identifier + ")10\nL\n\n", server.received(1));
    client.disconnect();
    for (size_t conn = 0; conn < 3; ++conn) server.close(conn);
    EXPECT_TRUE(wait_until([&] { return descriptor_count() == baseline; }, 2));

    // Sent up to a byte above 0x7F, and never more than 2043 bytes.
    ASSERT_TRUE(connect("ab\xe9zz"));
    client.disconnect();
    ASSERT_TRUE(connect(std::string(3000, 'x').c_str()));
    client.disconnect();
    ASSERT_TRUE(server.waitForPeerClose(3, 5s) && server.waitForPeerClose(4, 5s));
    EXPECT_EQ("\nab", server.received(3).substr(40));
    EXPECT_EQ(std::string(2043 - 41, 'x'), server.received(4).substr(41));
}

TEST_F(PushSessionTest, HandshakeFailingBeforeAnyReceiveThreadFailsTheConnectAtOnce) {
    std::future<bool> connected;
    {
        // The handshake's identifier is a scratch text: holding the pool's lock parks the
        // client between its TCP connect and its send while the server resets the connection.
        tavik::_objBlocking parked(&tavik::g_rav.sync);
        connected = std::async(std::launch::async, [&] { return connect(); });
        ASSERT_TRUE(server.waitForConnections(1, 5s));
        ASSERT_TRUE(server.reset(0));
        std::this_thread::sleep_for(100ms);
    }
    // No receive thread exists that could report having stopped: nothing to wait for.
    ASSERT_EQ(std::future_status::ready, connected.wait_for(2s)) << "connect still waits";
    EXPECT_FALSE(connected.get());
    EXPECT_EQ("", server.received(0));
    connectAndShake(1);
}

TEST_F(PushSessionTest, ThousandServerClosesAnsweredFromTheHandlerKeepDescriptorsFlat) {
    const size_t rounds = 1000;
    client.port = server.port();
    const int baseline = descriptor_count();
    ASSERT_TRUE(connect());
    int peak = 0;
    for (size_t i = 0; i < rounds; ++i) {
        ASSERT_TRUE(server.waitForHandshake(i, 10s)) << "round " << i;
        ASSERT_TRUE(i % 100 != 0 || server.sendFrame(i, "#1:hello"));
        ASSERT_TRUE(server.close(i));
        peak = std::max(peak, descriptor_count());
    }
    ASSERT_TRUE(server.waitForHandshake(rounds, 10s));
    // connect() sets its flags after the handshake: disconnecting earlier races the last one.
    ASSERT_TRUE(wait_until([&] { return client.reconnects == rounds; }, 10));
    client.quitting = true;
    client.disconnect();
    EXPECT_LE(peak, baseline + 4);  // the client's socket and the server's end, twice at most
    EXPECT_TRUE(server.close(rounds));
    EXPECT_TRUE(wait_until([&] { return descriptor_count() == baseline; }, 2));
    events seen = client.eventsSoFar();
    EXPECT_EQ(rounds, size_t(std::count(seen.begin(), seen.end(), "disconnected")));
    EXPECT_EQ(rounds / 100, size_t(std::count(seen.begin(), seen.end(), "receive:hello")));
}
