// Feeds an arbitrary byte stream through the receive thread's own loop (header, length, body,
// PushMessage::set, dispatch) and checks the events against a plain reading of the frame
// format. Input layout: one delivery byte, then the stream. The delivery byte seeds the chunk
// sizes each read hands out, the one-second time-outs in between, and how the stream ends
// (the peer closing, a read error or a read that throws).
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "PushClient/PushSession.h"

namespace {

struct event {
    int kind;  // 1 message, 2 authentication result
    bool passed;
    std::string text;

    bool operator==(const event& o) const {
        return kind == o.kind && passed == o.passed && text == o.text;
    }
};

class recordingSession : public BasePushClient {
public:
    void onDisconnected() override { ++disconnects; }
    void onError(const char*) override { ++errors; }
    void onAuthResult(bool passed, const char* token) override {
        events.push_back({2, passed, token});
    }
    void onReceive(const char* message) override { events.push_back({1, false, message}); }

    std::vector<event> events;
    int disconnects = 0;
    int errors = 0;
};

// Pieces as the library's split cuts them: empty pieces dropped, except the last one.
std::vector<std::string> pieces(const std::string& text, char delim) {
    std::vector<std::string> out;
    size_t from = 0;
    for (size_t at; (at = text.find(delim, from)) != std::string::npos; from = at + 1) {
        if (at > from) {
            out.push_back(text.substr(from, at - from));
        }
    }
    out.push_back(text.substr(from));
    return out;
}

// The events the stream's complete frames announce.
std::vector<event> expectedEvents(const std::string& stream) {
    std::vector<event> out;
    size_t at = 0;
    while (stream.size() - at >= 4) {
        int length = atoi(std::string(stream, at, 4).c_str());
        at += 4;
        if (length <= 0) {
            continue;
        }
        if (stream.size() - at < static_cast<size_t>(length)) {
            break;
        }
        std::string text = std::string(stream, at, static_cast<size_t>(length)).c_str();
        at += static_cast<size_t>(length);
        size_t colon = text.find(':', 1);
        if (text.empty() || colon == std::string::npos) {
            continue;
        }
        std::string code = text.substr(1, colon - 1);
        std::string message = text.substr(colon + 1);
        errno = 0;
        long value = strtol(code.c_str(), nullptr, 10);
        if (errno == ERANGE || value < INT_MIN || value > INT_MAX) {
            value = 0;
        }
        if (value == 1) {
            out.push_back({1, false, message});
        } else if (value == 2) {
            std::vector<std::string> p = pieces(message, ':');
            out.push_back({2, strcasecmp(p[0].c_str(), "true") == 0, p.size() > 1 ? p[1] : ""});
        }
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) {
        return 0;
    }
    const uint8_t delivery = data[0];
    const std::string stream(reinterpret_cast<const char*>(data) + 1, size - 1);
    uint32_t state = 0x9e3779b9u ^ (delivery * 0x01000193u);
    auto next = [&state] {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    };

    size_t cursor = 0;
    recordingSession session;
    BasePushClient::byteSource source;
    source.read = [&](char* buf, unsigned int n, long waitSeconds, long waitMillis) -> ssize_t {
        if (buf == nullptr || n == 0 || n > 9999 || waitSeconds != 1 || waitMillis != 0) {
            abort();
        }
        if (cursor == stream.size()) {
            if (delivery & 0x80) {
                throw std::runtime_error("read failed");
            }
            return (delivery & 0x40) ? -1 : 0;
        }
        uint32_t r = next();
        if (r % 8 == 0) {
            return tavik::sErrTimeout;
        }
        size_t chunk = 1 + (r >> 3) % n;
        chunk = std::min(chunk, stream.size() - cursor);
        memcpy(buf, stream.data() + cursor, chunk);
        cursor += chunk;
        return static_cast<ssize_t>(chunk);
    };
    source.current = [] { return true; };
    session.connected = true;
    session.receiveFrames(source);

    // The whole stream is read, the loop ends with the connection, once, and no frame is lost,
    // invented or read beyond its body.
    if (cursor != stream.size() || session.disconnects != 1 || session.errors != 0) {
        abort();
    }
    if (!(session.events == expectedEvents(stream))) {
        abort();
    }
    for (const event& e : session.events) {
        if (e.text.size() + 7 > stream.size()) {
            abort();
        }
    }
    return 0;
}
