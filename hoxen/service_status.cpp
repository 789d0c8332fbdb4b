#include "hoxen/service_status.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tavik/tk_mutex.h"

namespace {

// Idle ticks come once a second; ticks closer than this (while data flows) send nothing.
const long long kPingSpacingMillis = 500;

enum class Phase { connecting, connected, reconnecting };

// Set by service_ready before any other thread exists, only read afterwards.
bool enabled = false;
char address[160];

std::atomic<long> messages{0};
std::atomic<long> launches{0};
std::atomic<time_t> lastMessage{0};
std::atomic<long long> lastPingMillis{0};

// The connection's state and the last STATUS text sent, under `guard`.
tavik::mutex guard;
Phase phase = Phase::connecting;
long attempts = 0;     // of the current series of attempts
long lastAttempt = 0;  // number of the latest attempt
time_t since = 0;
char sent[512];

long long steady_millis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// "YYYY-MM-DD hh:mm:ss", local time.
void format_time(char (&out)[24], time_t t) {
    struct tm when;
    localtime_r(&t, &when);
    strftime(out, sizeof(out), "%Y-%m-%d %H:%M:%S", &when);
}

void compose(char* out, size_t size) {
    char when[24];
    const char* verb = phase == Phase::connecting ? "connecting" : "reconnecting";
    int n;
    if (phase == Phase::connected) {
        format_time(when, since);
        n = snprintf(out, size, "connected to %s since %s", address, when);
    } else if (attempts == 0) {
        n = snprintf(out, size, "%s to %s", verb, address);
    } else {
        n = snprintf(out, size, "%s to %s (attempts %ld)", verb, address, attempts);
    }
    char last[48] = "";
    if (time_t t = lastMessage.load()) {
        format_time(when, t);
        snprintf(last, sizeof(last), ", last message %s", when);
    }
    const size_t at = std::min(size - 1, static_cast<size_t>(n < 0 ? 0 : n));
    snprintf(out + at, size - at, "; messages %ld, checker launches %ld%s", messages.load(),
             launches.load(), last);
}

// Sends `head` (READY=1, WATCHDOG=1 or nothing) and the STATUS line when it has changed since
// it was last sent. Called with `guard` held, so that status lines go out in order.
void publish(const char* head) {
    char status[sizeof(sent)];
    compose(status, sizeof(status));
    const bool changed = strcmp(status, sent) != 0;
    if (!changed && *head == '\0')
        return;
    char message[sizeof(sent) + 32];
    snprintf(message, sizeof(message), "%s%s%s%s", head, *head != '\0' && changed ? "\n" : "",
             changed ? "STATUS=" : "", changed ? status : "");
    sd_notify(0, message);
    memcpy(sent, status, sizeof(sent));
}

}  // namespace

void service_ready(const char* ip, int port) {
    const char* socket = getenv("NOTIFY_SOCKET");
    enabled = socket != nullptr && *socket != '\0';
    if (!enabled)
        return;
    snprintf(address, sizeof(address), "%s:%d", ip, port);
    tavik::_objBlocking lock(&guard);
    publish("READY=1");
}

long service_connect_attempt() {
    if (!enabled)
        return 0;
    tavik::_objBlocking lock(&guard);
    if (phase == Phase::connected)
        phase = Phase::reconnecting;
    ++attempts;
    lastPingMillis = steady_millis();
    publish("WATCHDOG=1");
    return ++lastAttempt;
}

void service_connected(long attempt) {
    if (!enabled)
        return;
    tavik::_objBlocking lock(&guard);
    if (attempt != lastAttempt)
        return;
    phase = Phase::connected;
    attempts = 0;
    since = time(nullptr);
    publish("");
}

void service_message_received() {
    if (!enabled)
        return;
    ++messages;
    lastMessage = time(nullptr);
}

void service_checker_launched() {
    if (!enabled)
        return;
    ++launches;
}

void service_tick() {
    if (!enabled)
        return;
    const long long now = steady_millis();
    long long last = lastPingMillis.load();
    // Of two threads ticking at once (a handler's new receive thread beside the old), one pings.
    if (now - last < kPingSpacingMillis || !lastPingMillis.compare_exchange_strong(last, now))
        return;
    tavik::_objBlocking lock(&guard);
    publish("WATCHDOG=1");
}
