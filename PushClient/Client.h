// The bridge between a push session and the application's facade: a concrete session that
// forwards each event, on the receive thread, to the PushClient that owns it. The facade owns
// the bridge; the bridge does not own the facade.
#pragma once

#include "PushClient/PushSession.h"

class PushClient;

class Client : public BasePushClient {
public:
    explicit Client(PushClient* owner);
    virtual ~Client();

    // Each passes its arguments unchanged; texts are valid only during the call.
    virtual void onDisconnected() override;
    virtual void onError(const char* message) override;
    virtual void onAuthResult(bool passed, const char* token) override;
    virtual void onReceive(const char* message) override;
    virtual void onTick() override;

    PushClient* pushClient;
};
