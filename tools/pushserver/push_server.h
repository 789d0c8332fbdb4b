// A scripted push server for tests and operator tools: listens on an IPv4 address (127.0.0.1
// unless told otherwise), records every
// byte each client sends, and sends frames ("%04d" length + body) whole, in chunks or one byte
// at a time, raw bytes, closes or resets connections. All members may be called from any
// thread; one background thread accepts and reads. Connections are numbered 0, 1, 2, ... in
// the order they were accepted; their records live as long as the server.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace pushserver {

// The client's opening text: "domain:(identifier)userId\nloginParam\n\n" (the "(identifier)"
// part may be absent).
struct Handshake {
    std::string domain;
    std::string identifier;
    std::string userId;
    std::string loginParam;

    // Parses a complete handshake text (it must end with the blank line and hold nothing after
    // it); false when the text does not have that shape.
    static bool parse(const std::string& text, Handshake* out);
};

// "%04d" length followed by the body; bodies longer than 9999 bytes cannot be framed and
// yield the header of their length modulo 10000 (tests use that to send broken headers).
std::string frame(const std::string& body);

class PushServer {
public:
    using millis = std::chrono::milliseconds;

    PushServer();
    // Closes the listener and every connection and ends the background thread.
    ~PushServer();
    PushServer(const PushServer&) = delete;
    PushServer& operator=(const PushServer&) = delete;

    // Listens on address:port (dotted IPv4 or "localhost"; 0 picks a free port; a port used
    // before may be given again after stopListening). False when the address is not one,
    // the port cannot be bound, or a listener is open.
    bool listen(int port = 0, const char* address = "127.0.0.1");
    // The port of the last successful listen, 0 before.
    int port() const;
    // Closes the listener: new connects are refused; accepted connections stay.
    void stopListening();

    // Number of connections accepted so far (closed ones included).
    size_t connectionCount() const;
    // Waits until at least n connections have been accepted.
    bool waitForConnections(size_t n, millis limit);
    // Waits until connection conn has sent a text ending in "\n\n"; fills out (may be null)
    // with the parsed handshake; false on time-out or when the text does not parse.
    bool waitForHandshake(size_t conn, millis limit, Handshake* out = nullptr);
    // Waits until connection conn has sent at least n bytes in all.
    bool waitForBytes(size_t conn, size_t n, millis limit);
    // Waits until the client has closed connection conn (end of stream or error).
    bool waitForPeerClose(size_t conn, millis limit);
    // Every byte connection conn has sent so far (empty for an unknown number).
    std::string received(size_t conn) const;
    // True when the client closed connection conn.
    bool peerClosed(size_t conn) const;

    // Sends frame(body) in one write.
    bool sendFrame(size_t conn, const std::string& body);
    // Sends frame(body) in writes of the given sizes (the rest, if any, in one last write),
    // pausing pause between writes.
    bool sendFrameSplit(size_t conn, const std::string& body, const std::vector<size_t>& chunks,
                        millis pause = millis(0));
    // Sends frame(body) one byte per write, pausing pause between bytes.
    bool sendFrameBytewise(size_t conn, const std::string& body, millis pause);
    // Sends bytes exactly as given. False when the connection is closed or the write fails.
    bool sendRaw(size_t conn, const std::string& bytes);
    // Closes connection conn in an orderly way (the client reads end of stream).
    bool close(size_t conn);
    // Aborts connection conn with a reset (SO_LINGER 0).
    bool reset(size_t conn);

private:
    struct connection;

    std::shared_ptr<connection> find(size_t conn) const;
    bool sendPieces(size_t conn, const std::string& bytes, const std::vector<size_t>& sizes,
                    millis pause);
    bool shut(size_t conn, bool abort);
    template <class Ready>
    bool waitUntil(millis limit, Ready ready);
    void serve();
    void acceptOne();
    void readFrom(const std::shared_ptr<connection>& c);
    void wake();

    mutable std::mutex lock;
    std::condition_variable changed;
    std::vector<std::shared_ptr<connection>> connections;
    int listenFd = -1;
    int boundPort = 0;
    int wakePipe[2] = {-1, -1};
    bool ending = false;
    std::thread worker;
};

}  // namespace pushserver
