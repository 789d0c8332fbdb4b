// The push client as applications see it: derive from PushClient, implement onReceive (and
// the other events as needed), then connect. Events run on the session's receive thread, one
// at a time, and may call connect or reconnect. The facade owns its session; call disconnect
// before destroying it.
#pragma once

class PushClient {
public:
    PushClient();
    // Releases the session without disconnecting it.
    virtual ~PushClient();
    PushClient(const PushClient&) = delete;
    PushClient& operator=(const PushClient&) = delete;

    virtual void onDisconnected() {}
    virtual void onError(const char* message) { (void)message; }
    virtual void onAuthResult(bool passed, const char* token) {
        (void)passed;
        (void)token;
    }
    virtual void onReceive(const char* message) = 0;
    // Raised on the receive thread after each of its read waits, so at least once a second
    // while the connection is quiet (and more often while data flows): a sign that the thread
    // is alive, for a watchdog.
    virtual void onTick() {}

    bool connect(const char* serverAddress, int port, const char* domain, const char* userId,
                 const char* loginParam);
    // Connects again with the values of the last connect and a new session identifier.
    bool reconnect();
    // Stops the session; from another thread it returns within about 1.5 s.
    void disconnect();

    // The session (a Client).
    void* client;
    // For the application's own use; the facade never reads or writes them.
    char serverAddress[20];
    char domain[50];
    char userId[50];
    char loginParam[256];
    int port;
};
