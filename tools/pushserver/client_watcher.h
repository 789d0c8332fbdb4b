// Watches a PushServer's connections from a background thread and prints, in the order it
// sees them, each client's connect, its handshake and its closing of the connection. Keeps
// the number of the newest client whose handshake has arrived. Lines go to standard output
// through say(), which other threads use too so that lines never mix.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tools/pushserver/push_server.h"

namespace pushserver {

class ClientWatcher {
public:
    explicit ClientWatcher(PushServer& server);
    // Stops and joins the watching thread.
    ~ClientWatcher();

    // Waits for a handshake from a client numbered above `after` (-1: any client); returns
    // the newest such client, or -1 when limit passes first (limit 0: no limit).
    long waitForClientAfter(long after, std::chrono::milliseconds limit);
    // The newest client whose handshake has arrived, -1 while there is none.
    long newestClient() const;

    // Prints one line, with "client N: " in front when client is 0 or more.
    void say(long client, const std::string& text);

private:
    struct seen {
        bool handshake = false;
        bool closed = false;
    };

    void watch();
    void look(size_t conn, seen* state);

    PushServer& server;
    mutable std::mutex lock;
    std::condition_variable changed;
    std::vector<seen> clients;
    long newest = -1;
    std::mutex printing;
    std::atomic<bool> stopping{false};
    std::thread worker;
};

}  // namespace pushserver
