// The receive thread: reads "%04d"-length-prefixed frames with one-second read waits, parses
// each into a PushMessage and raises the session's events on this thread.
#include <strings.h>

#include <cstdlib>
#include <memory>

#include "PushClient/PushMessage.h"
#include "PushClient/PushSession.h"
#include "tavik/tk_os.h"

namespace {

const int headerSize = 4;
const int idleWaitMillis = 100;
const long readWaitSeconds = 1;
const int taskMessage = 1;
const int taskAuthResult = 2;
const char* const encodingError = "Unsupported encoding exception has occurred";

const char* textOf(const char* s) {
    return s != nullptr ? s : "";
}

}  // namespace

void BasePushClient::run() {
    std::shared_ptr<tavik::socks> own = takeOver();
    if (own) {
        // The source holds no share of the socket: only `own` keeps it for this thread.
        tavik::socks* s = own.get();
        receiveFrames({[s](char* buf, unsigned int n, long waitSeconds, long waitMillis) {
                           return s->recv(buf, n, waitSeconds, waitMillis);
                       },
                       [this, &own] { return isCurrent(own); }});
    }
    // Let go of the socket first, so that a _disconnect waiting below finds it closed.
    own.reset();
    stopped = true;
}

void BasePushClient::receiveFrames(const byteSource& source) {
    while (receiveFrame(source)) {
    }
}

// One pass of the loop: false when the thread is to end.
bool BasePushClient::receiveFrame(const byteSource& source) {
    if (stopRequested) {
        return false;
    }
    while (!connected) {
        tavik::linux_sleep(idleWaitMillis);
        if (stopRequested) {
            if (connected) {
                _disconnect();
                onDisconnected();
            }
            return false;
        }
    }
    char header[headerSize + 1] = {};
    if (readFully(source, header, headerSize, false) != readComplete) {
        return false;
    }
    int length = atoi(header);
    if (length <= 0) {
        return true;
    }
    std::unique_ptr<char[]> body(new char[length + 1]);
    if (readFully(source, body.get(), length, true) != readComplete) {
        return false;
    }
    // The peer does not terminate the body; an embedded NUL ends its text.
    body[length] = '\0';
    if (!source.current()) {
        return false;
    }
    dispatch(body.get());
    return true;
}

// Reads exactly length bytes, waiting a second at a time for as long as the peer is quiet.
// Raises onDisconnected where the connection ends under the reader; a socket that a later
// connect or _disconnect has taken away ends the read without an event.
BasePushClient::readOutcome BasePushClient::readFully(const byteSource& source, char* buf,
                                                      int length, bool body) {
    int n = 0;
    while (n < length && source.current()) {
        ssize_t got;
        try {
            got = source.read(buf + n, static_cast<unsigned int>(length - n), readWaitSeconds, 0);
        } catch (...) {
            if (body) {
                connected = false;
            }
            _disconnect();
            onDisconnected();
            return readEnded;
        }
        onTick();
        if (got == tavik::sErrTimeout && !stopRequested) {
            continue;
        }
        if (stopRequested) {
            return readEnded;
        }
        if (got <= 0) {
            // The socket stays in the session, so that the handler may connect again.
            if (source.current()) {
                onDisconnected();
            }
            return readEnded;
        }
        n += static_cast<int>(got);
        if (stopRequested) {
            _disconnect();
            onDisconnected();
            return readEnded;
        }
    }
    return n == length ? readComplete : readEnded;
}

void BasePushClient::dispatch(const char* body) {
    try {
        PushMessage message;
        message.set(body);
        if (message.taskCode == taskMessage) {
            onReceive(textOf(message.message.get()));
        } else if (message.taskCode == taskAuthResult) {
            std::unique_ptr<tavik::strArr> pieces(message.message.split(":"));
            const char* word = pieces->length > 0 ? (*pieces)[0] : nullptr;
            const char* token = pieces->length > 1 ? (*pieces)[1] : nullptr;
            onAuthResult(strcasecmp(textOf(word), "true") == 0, textOf(token));
        }
        return;
    } catch (...) {
        if (!connected) {
            return;
        }
        connected = false;
    }
    _disconnect();
    onError(encodingError);
    onDisconnected();
}
