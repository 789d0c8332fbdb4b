#include "PushClient/PushSession.h"

#include <cstring>

#include "PushClient/PushCharset.h"
#include "PushClient/PushUser.h"
#include "tavik/tk_common.h"

namespace {

// Size of the handshake buffers; a longer handshake is cut to fit.
const int handshakeCapacity = 2048;
// Bound of the wait for the receive thread in _disconnect, in seconds.
const int stopWaitSeconds = 2000;

}  // namespace

BasePushClient::BasePushClient()
    : serverAddress(""),
      domain(""),
      userId(""),
      loginParam(""),
      connected(false),
      stopRequested(false),
      stopped(false),
      readerStarted(false) {}

BasePushClient::~BasePushClient() {}

bool BasePushClient::connect(const char* serverAddress, int port, const char* domain,
                             const char* userId, const char* loginParam) {
    this->serverAddress = serverAddress;
    this->port = port;
    this->domain = domain;
    this->userId = userId;
    this->loginParam = loginParam;

    std::shared_ptr<tavik::socks> fresh = std::make_shared<tavik::socks>();
    replaceSocket(fresh);
    if (!fresh->connect(this->serverAddress.get(), static_cast<unsigned int>(port))) {
        tavik::_objBlocking guard(&sockGuard);
        if (sock == fresh) {
            sock.reset();
        }
        return false;
    }
    if (!sendHandshake(*fresh)) {
        _disconnect();
        return false;
    }
    connected = true;
    stopRequested = false;
    stopped = false;
    startReader(fresh);
    return true;
}

bool BasePushClient::reconnect() {
    // connect() assigns each value to the field it is read from: pass copies.
    tavik::string address(serverAddress.get());
    tavik::string domainCopy(domain.get());
    tavik::string userIdCopy(userId.get());
    tavik::string loginCopy(loginParam.get());
    return connect(address.get(), port, domainCopy.get(), userIdCopy.get(), loginCopy.get());
}

void BasePushClient::disconnect() {
    _disconnect();
}

void BasePushClient::_disconnect() {
    tavik::mutex4obj<BasePushClient>::blocking guard(this);
    stopRequested = true;
    std::shared_ptr<tavik::socks> s = currentSocket();
    if (!s) {
        return;
    }
    try {
        s->disconnect();
        // The receive thread holds its own share: the object goes when that thread has left.
        tavik::_objBlocking sockLock(&sockGuard);
        if (sock == s) {
            sock.reset();
        }
    } catch (...) {
        connected = false;
    }
    // A failed handshake on a first connect: no thread exists that could set stopped.
    if (readerStarted) {
        wait(stopWaitSeconds, &stopped);
    }
}

bool BasePushClient::sendHandshake(tavik::socks& s) {
    tavik::string text("");
    PushUser user(domain.get(), tavik::uuid::randomUUID(), userId.get());
    text += user.toString();
    text += "\n";
    text += loginParam.get();
    text += "\n\n";

    unsigned char input[handshakeCapacity];
    unsigned char output[handshakeCapacity] = {};
    int length = static_cast<int>(std::min<unsigned int>(text.getLength(), handshakeCapacity - 1));
    memcpy(input, text.get(), static_cast<size_t>(length));
    input[length] = '\0';
    int capacity = handshakeCapacity;
    ansi2utf(output, &capacity, input, &length);

    char* wire = reinterpret_cast<char*>(output);
    size_t size = strlen(wire);
    return s.send(wire, size) == static_cast<ssize_t>(size);
}

std::shared_ptr<tavik::socks> BasePushClient::currentSocket() {
    tavik::_objBlocking guard(&sockGuard);
    return sock;
}

bool BasePushClient::isCurrent(const std::shared_ptr<tavik::socks>& s) {
    tavik::_objBlocking guard(&sockGuard);
    return sock == s;
}

void BasePushClient::replaceSocket(const std::shared_ptr<tavik::socks>& s) {
    std::shared_ptr<tavik::socks> leftover;
    {
        tavik::_objBlocking guard(&sockGuard);
        leftover = sock;
        sock = s;
    }
    // A connection lost without _disconnect leaves its socket here. Closing it ends a reader
    // still waiting on it (it sees it is no longer current and stops without an event).
    if (leftover) {
        leftover->disconnect();
    }
}

void BasePushClient::startReader(const std::shared_ptr<tavik::socks>& s) {
    // Under the guard: a handler's connect and another thread's must not start at once (both
    // write the thread handle), and a thread that fails to start leaves no socket behind.
    tavik::_objBlocking guard(&sockGuard);
    handoff.push_back(s);
    bool startedBefore = readerStarted.exchange(true);
    if (start(nullptr) == 0) {
        handoff.pop_back();
        readerStarted = startedBefore;
    }
}

std::shared_ptr<tavik::socks> BasePushClient::takeOver() {
    tavik::_objBlocking guard(&sockGuard);
    if (handoff.empty()) {
        return nullptr;
    }
    std::shared_ptr<tavik::socks> s = handoff.front();
    handoff.pop_front();
    return s;
}
