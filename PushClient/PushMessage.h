// One inbound push message: a task code (1 = message for the application, 2 = answer to the
// handshake) and the text after it. A value made and dropped by the receive thread per frame.
#pragma once

#include "tavik/tk_string.h"

class PushMessage {
public:
    // taskCode 0 (ignored) and an empty message until set() finds a task code.
    PushMessage();
    virtual ~PushMessage();

    // Parses a body "<any character><code>:<message>". A body without a colon after its first
    // character leaves both fields as they are.
    void set(const char* text);

    int taskCode;
    tavik::string message;
};
