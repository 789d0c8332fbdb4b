// The push session: one TCP connection to the push server, the handshake that opens it and
// the receive thread that raises the session's events. connect, reconnect and disconnect may
// be called from any thread, also from inside an event; the events run on the receive thread.
// The session owns its socket; each receive thread shares the socket it reads, so a socket
// lives until the session has let go of it and its reader has left it.
#pragma once

#include <atomic>
#include <deque>
#include <memory>

#include "tavik/tk_mutex.h"
#include "tavik/tk_socket.h"
#include "tavik/tk_string.h"
#include "tavik/tk_thread.h"

class BasePushClient : public tavik::thread<false>, public tavik::mutex4obj<BasePushClient> {
public:
    BasePushClient();
    // Neither disconnects nor waits for the receive thread: disconnect first.
    virtual ~BasePushClient();

    // Connects, sends the handshake with a new session identifier and starts the receive
    // thread. False when the server cannot be reached or the handshake is not sent whole.
    bool connect(const char* serverAddress, int port, const char* domain, const char* userId,
                 const char* loginParam);
    // connect() with the values of the last connect.
    bool reconnect();
    void disconnect();
    // Stops the session: closes the socket and waits (at most 2000 s) for the receive thread
    // to report that it has stopped. Called on the receive thread with a socket still open,
    // the wait runs its full length, since only that thread reports.
    void _disconnect();

    // The receive thread's body.
    virtual void run() override;

    virtual void onDisconnected() = 0;
    virtual void onError(const char* message) = 0;
    virtual void onAuthResult(bool passed, const char* token) = 0;
    virtual void onReceive(const char* message) = 0;

    tavik::string serverAddress;
    tavik::string domain;
    tavik::string userId;
    tavik::string loginParam;
    int port;
    // The connection of the last connect; null when there is none. Replaced by connect and
    // released by _disconnect; guarded by sockGuard.
    std::shared_ptr<tavik::socks> sock;
    // Set when the handshake has been sent whole.
    std::atomic<bool> connected;
    // Set by _disconnect to end the receive thread.
    std::atomic<bool> stopRequested;
    // Set by the receive thread as its last act.
    std::atomic<bool> stopped;

private:
    enum readOutcome { readComplete, readEnded };

    std::shared_ptr<tavik::socks> currentSocket();
    bool isCurrent(const std::shared_ptr<tavik::socks>& s);
    void replaceSocket(const std::shared_ptr<tavik::socks>& s);
    bool sendHandshake(tavik::socks& s);
    void startReader(const std::shared_ptr<tavik::socks>& s);
    std::shared_ptr<tavik::socks> takeOver();

    bool receiveFrame(const std::shared_ptr<tavik::socks>& s);
    readOutcome readFully(const std::shared_ptr<tavik::socks>& s, char* buf, int length, bool body);
    void dispatch(const char* body);

    tavik::mutex sockGuard;
    // Sockets of started receive threads that have not yet picked them up, oldest first.
    std::deque<std::shared_ptr<tavik::socks>> handoff;
};
