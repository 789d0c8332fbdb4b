// The push session: one TCP connection to the push server, the handshake that opens it and
// the receive thread that raises the session's events. connect, reconnect and disconnect may
// be called from any thread, also from inside an event; the events run on the receive thread.
// The session owns its socket; each receive thread shares the socket it reads, so a socket
// lives until the session has let go of it and its reader has left it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <deque>
#include <functional>
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
    // to report that it has stopped; a session that never started one does not wait. Called
    // on the receive thread with a socket still open, the wait runs its full length, since
    // only that thread reports.
    void _disconnect();

    // The receive thread's body: receiveFrames() from the socket handed to this thread.
    virtual void run() override;

    // Where the receive loop reads the server's bytes. read answers as the socket's recv
    // does: a byte count, sErrTimeout when nothing came within the wait, 0 when the peer has
    // closed, below 0 on an error; it may throw. current tells whether the session still
    // reads from this source (a later connect or _disconnect takes it away).
    struct byteSource {
        std::function<ssize_t(char* buf, unsigned int n, long waitSeconds, long waitMillis)> read;
        std::function<bool()> current;
    };
    // Reads frames from source and raises their events until the loop ends; does not set
    // stopped (run() does, once it has let go of the socket).
    void receiveFrames(const byteSource& source);

    virtual void onDisconnected() = 0;
    virtual void onError(const char* message) = 0;
    virtual void onAuthResult(bool passed, const char* token) = 0;
    virtual void onReceive(const char* message) = 0;
    // After each read wait of the receive thread: at least once a second while it lives and
    // reads. Nothing else follows from it.
    virtual void onTick() {}

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

    bool receiveFrame(const byteSource& source);
    readOutcome readFully(const byteSource& source, char* buf, int length, bool body);
    void dispatch(const char* body);

    tavik::mutex sockGuard;
    // Set once a receive thread has been started: from then on one exists, or has existed,
    // to report stopped. Set before the start, since the new thread may stop at once.
    std::atomic<bool> readerStarted;
    // Sockets of started receive threads that have not yet picked them up, oldest first.
    std::deque<std::shared_ptr<tavik::socks>> handoff;
};
