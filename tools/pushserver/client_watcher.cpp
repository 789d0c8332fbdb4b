// The watcher polls the server every 20 ms: the server's own waits are per connection, and
// the watcher has to notice any of them.
#include "tools/pushserver/client_watcher.h"

#include <cstdio>

namespace pushserver {

namespace {

const std::chrono::milliseconds kPoll(20);

// Control characters of a client's text shown as \n, \xNN, so that one handshake is one line.
std::string printable(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c == '\n') {
            out += "\\n";
        } else if (c < 0x20 || c >= 0x7f) {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

}  // namespace

ClientWatcher::ClientWatcher(PushServer& server) : server(server) {
    worker = std::thread([this] { watch(); });
}

ClientWatcher::~ClientWatcher() {
    stopping = true;
    worker.join();
}

long ClientWatcher::waitForClientAfter(long after, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> guard(lock);
    auto ready = [&] { return newest > after; };
    if (limit.count() == 0) {
        changed.wait(guard, ready);
    } else if (!changed.wait_for(guard, limit, ready)) {
        return -1;
    }
    return newest;
}

long ClientWatcher::newestClient() const {
    std::lock_guard<std::mutex> guard(lock);
    return newest;
}

void ClientWatcher::say(long client, const std::string& text) {
    std::lock_guard<std::mutex> guard(printing);
    if (client >= 0) {
        printf("client %ld: %s\n", client, text.c_str());
    } else {
        printf("%s\n", text.c_str());
    }
    fflush(stdout);
}

void ClientWatcher::watch() {
    // One more pass after the stop, so that what happened up to then is printed.
    for (bool last = false; !last;) {
        last = stopping;
        size_t count = server.connectionCount();
        for (size_t conn = 0; conn < count; ++conn) {
            if (conn == clients.size()) {
                clients.emplace_back();
                say(conn, "connected");
            }
            look(conn, &clients[conn]);
        }
        if (!last) {
            std::this_thread::sleep_for(kPoll);
        }
    }
}

void ClientWatcher::look(size_t conn, seen* state) {
    if (!state->handshake) {
        Handshake shake;
        std::string bytes = server.received(conn);
        if (server.waitForHandshake(conn, std::chrono::milliseconds(0), &shake)) {
            state->handshake = true;
            say(conn, "handshake: domain=" + shake.domain + " identifier=" + shake.identifier +
                          " user id=" + shake.userId + " login parameter=" + shake.loginParam);
            std::lock_guard<std::mutex> guard(lock);
            newest = static_cast<long>(conn);
            changed.notify_all();
        } else if (bytes.find("\n\n") != std::string::npos) {
            state->handshake = true;
            say(conn, "unreadable handshake: " + printable(bytes));
        }
    }
    if (!state->closed && server.peerClosed(conn)) {
        state->closed = true;
        say(conn, "closed by the client");
    }
}

}  // namespace pushserver
