// The identity that opens every push connection: domain, session identifier and user id.
// A plain value owned by whoever builds it; not shared between threads.
#pragma once

#include "tavik/tk_string.h"

class PushUser {
public:
    // Copies the three texts; a null pointer leaves its field empty.
    PushUser(const char* domain, const char* uuid, const char* userId);
    virtual ~PushUser();

    // "domain:(uuid)userId", or "domain:userId" when uuid is empty. Returns a scratch text,
    // valid until a thousand more have been made; copy what you keep.
    char* toString();

    tavik::string domain;
    tavik::string uuid;
    tavik::string userId;
};
