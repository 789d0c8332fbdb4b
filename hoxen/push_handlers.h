// Push is the daemon's push client: it keeps the connection data given on the command
// line and reacts to the push events. It reconnects (once a second, for ever) after a
// disconnection or an error, prints and logs the authentication result, and starts the
// integrity checker for every message. Each step is also reported to the service manager
// (hoxen/service_status.h). The handlers run on the session's receive thread;
// the fields are written once, before the first connection, and only read afterwards.
#ifndef HOXEN_PUSH_HANDLERS_H
#define HOXEN_PUSH_HANDLERS_H

#include "PushClient/PushClient.h"

class Push : public PushClient {
public:
    // Connection data, each a NUL-terminated text (the base's fields of the same
    // names are hidden on purpose: connect is repeated with these copies).
    char ip[128];
    char domain[128];
    char id[128];
    char pw[128];
    int port;

    Push();
    ~Push() override;

    void onDisconnected() override;
    void onError(const char* cause) override;
    void onAuthResult(bool passed, const char* token) override;
    void onReceive(const char* message) override;
    // Reports to the service manager that the receive thread is alive.
    void onTick() override;

    // One connect attempt with the connection data, reported to the service manager.
    bool tryConnect();

private:
    // Calls connect until it succeeds, logging `warning` after each failed attempt.
    void _reconnect(char* warning);
};

#endif  // HOXEN_PUSH_HANDLERS_H
