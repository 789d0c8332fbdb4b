// The library's IPv4 TCP client connection (socks): resolve, connect (blocking or with a time
// limit), send, wait for data and receive. Results are counts or the negative codes below.
// Receiving reads ahead: one recv(2) takes up to readAheadSize bytes, and later recv() calls
// hand out what is left of them without waiting or calling the system, so a caller reading a
// few bytes at a time costs one system call per batch of data rather than two per call.
// send() and recv() may run at the same time on two threads (each direction has its own lock);
// waitForRead() takes neither lock, so it answers while another thread waits in recv().
// disconnect() may be called while other threads are inside send(), recv() or waitForRead():
// it wakes them at once and closes the descriptor only after they have left it, so none of
// them uses a closed or reused descriptor. connect() must not race with other calls.
#ifndef TAVIK_TK_SOCKET_H
#define TAVIK_TK_SOCKET_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <shared_mutex>

#include "tavik/tk_common.h"
#include "tavik/tk_log.h"
#include "tavik/tk_mutex.h"
#include "tavik/tk_string.h"

namespace tavik {

// Empty tag type with which the library's templates are instantiated.
struct nullType {};

typedef int SOCKET;

// No socket: never connected, or disconnected.
const int sErrDisconnected = -1;
// Nothing arrived within the time limit.
const int sErrTimeout = -5;

template <class T>
class _tempSock {
public:
    _tempSock()
        : connected(false), _sock(0), servicePort(0), _readPos(0), _readEnd(0), _readAheadBytes(0) {
        memset(&addr, 0, sizeof addr);
    }

    _tempSock(const _tempSock&) = delete;
    _tempSock& operator=(const _tempSock&) = delete;

    virtual ~_tempSock() { disconnect(); }

    // Blocking connect to host (dotted IPv4, a name, or null for 127.0.0.1). Returns 1 when
    // connected, 0 on failure; throws "socket has failed to init" when no socket can be made.
    // An object that is still connected is closed and the call fails: disconnect first.
    virtual int connect(const char* host, unsigned int port) {
        bool wasConnected = connected;
        disconnect();  // also closes the descriptor of an earlier failed attempt
        if (!wasConnected) {
            SOCKET fd = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
            if (fd == -1) {
                throw "socket has failed to init";
            }
            _sock = fd;
        }
        _remember(host, port);
        if (!_resolve(host, port) || wasConnected) {
            return 0;
        }
        if (::connect(_sock, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
            return 0;
        }
        connected = true;
        return 1;
    }

    // Connect that gives up after sec seconds plus usec MICROseconds. A refused or failed
    // attempt writes a warning through the library logger and returns 0. An attempt still
    // pending when the limit passes counts as connected (1): the first send or recv then
    // reports the real state. A still-connected object is closed and the call fails.
    virtual int connect(const char* host, unsigned int port, long sec, long usec) {
        bool wasConnected = connected;
        disconnect();
        if (!wasConnected) {
            SOCKET fd = ::socket(AF_INET, SOCK_STREAM, 0);
            if (fd == -1) {
                _warnConnectFailed(host, port, errno);
                return 0;
            }
            _sock = fd;
            fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        }
        _remember(host, port);
        if (!_resolve(host, port)) {
            return 0;
        }
        if (wasConnected) {
            _warnConnectFailed(host, port, EISCONN);
            return 0;
        }
        SOCKET fd = _sock;
        if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
            if (errno != EINPROGRESS) {
                int err = errno;
                int soErr = _socketError(fd);
                _warnConnectFailed(host, port, soErr != 0 ? soErr : err);
                return 0;
            }
            if (_waitForWrite(fd, sec, usec) > 0) {
                int soErr = _socketError(fd);
                if (soErr != 0) {
                    _warnConnectFailed(host, port, soErr);
                    return 0;
                }
            }
        }
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
        connected = true;
        return 1;
    }

    // Sends with one send call and returns its result; len 0 sends strlen(buf) bytes.
    // Returns -1 without a socket. A connection reset by the peer gives -1, never SIGPIPE.
    ssize_t send(const char* buf, size_t len) {
        if (_sock < 1) {
            return sErrDisconnected;
        }
        _objBlocking guard(&mtxSend);
        SOCKET fd = _sock;
        if (fd < 1) {
            return sErrDisconnected;
        }
        if (len == 0 && buf != nullptr) {
            len = strlen(buf);
        }
        return ::send(fd, buf, len, MSG_NOSIGNAL);
    }

    // Returns up to len bytes: those already read ahead at once, else it waits up to sec
    // seconds plus msec MILLIseconds for data and reads once. Returns the count handed out
    // (at most len; 0 at once for len 0 while bytes are read ahead), 0 when the peer closed,
    // -1 without a socket, -5 when nothing arrived in time. Bytes that arrived together may
    // come out over several calls.
    ssize_t recv(char* buf, unsigned int len, long sec, long msec) {
        if (_sock < 1) {
            return sErrDisconnected;
        }
        _objBlocking guard(&mtxRecv);
        SOCKET fd = _sock;
        if (fd < 1) {
            return sErrDisconnected;
        }
        if (_readPos < _readEnd) {
            return _handOut(buf, len);
        }
        if (_waitForRead(fd, sec, msec) == 0) {
            return sErrTimeout;
        }
        // A request as large as the read-ahead buffer (or empty) goes straight to the caller.
        if (len == 0 || len >= readAheadSize) {
            return ::recv(fd, buf, len, 0);
        }
        if (!_readAhead) {
            _readAhead.reset(new char[readAheadSize]);
        }
        ssize_t got = ::recv(fd, _readAhead.get(), readAheadSize, 0);
        if (got <= 0) {
            return got;
        }
        _readPos = 0;
        _readEnd = static_cast<size_t>(got);
        return _handOut(buf, len);
    }

    // Waits up to sec seconds plus msec milliseconds for data: positive when readable (at
    // once when read-ahead bytes are waiting), 0 on time-out or without a socket, -1 on
    // error. Takes no lock of recv(): bytes that a reader on another thread takes ahead during
    // the wait count only when the wait ends.
    int waitForRead(long sec, long msec) {
        if (_sock < 1) {
            return 0;
        }
        // Held shared, this keeps disconnect() from closing the descriptor during the wait.
        std::shared_lock<std::shared_mutex> waiting(_waiting);
        SOCKET fd = _sock;
        if (fd < 1) {
            return 0;
        }
        if (_readAheadBytes > 0) {
            return 1;
        }
        int ready = _waitForRead(fd, sec, msec);
        return ready == 0 && _readAheadBytes > 0 ? 1 : ready;
    }

    // Closes the socket and drops bytes read ahead. Returns at once also while other threads
    // are inside send(), recv() or waitForRead(): it ends their waits (a receive reads
    // end-of-stream, a send blocked on a full buffer fails) and closes the descriptor once
    // they have left it.
    void disconnect() {
        _objBlocking state(&mtxState);
        // Taken away first: calls that start from now on find no socket and wait for nothing.
        SOCKET fd = _sock.exchange(0);
        if (fd != 0) {
            shutdown(fd, SHUT_RD);
            _objBlocking receiving(&mtxRecv);
            // Only a send in progress has its writing side shut early: otherwise the peer
            // sees the connection end as before, at the close.
            if (!mtxSend.tryLock()) {
                shutdown(fd, SHUT_WR);
                mtxSend.lock();
            }
            std::unique_lock<std::shared_mutex> waiting(_waiting);
            close(fd);
            mtxSend.unlock();
            // Bytes read ahead belong to the closed connection.
            _readPos = 0;
            _readEnd = 0;
            _readAheadBytes = 0;
        }
        connected = false;
    }

    mutex mtxRecv;
    mutex mtxSend;
    std::atomic<bool> connected;
    sockaddr_in addr;
    std::atomic<SOCKET> _sock;
    smartPtr<char> serviceAddr;
    unsigned int servicePort;
    string broadcastingLocalAddress;

    // Most bytes one recv(2) takes ahead of the caller.
    static constexpr unsigned int readAheadSize = 16384;

protected:
    // Copies up to len read-ahead bytes into buf; the caller holds the receive lock.
    ssize_t _handOut(char* buf, unsigned int len) {
        size_t n = _readEnd - _readPos;
        if (n > len) {
            n = len;
        }
        if (n > 0) {
            memcpy(buf, _readAhead.get() + _readPos, n);
        }
        _readPos += n;
        _readAheadBytes = _readEnd - _readPos;
        return static_cast<ssize_t>(n);
    }

    // poll() rather than select(): a descriptor number at or above FD_SETSIZE is valid here.
    static int _waitForRead(SOCKET fd, long sec, long msec) {
        if (fd < 1) {
            return 0;
        }
        return _poll(fd, POLLIN, sec, msec * 1000);
    }

    static int _waitForWrite(SOCKET fd, long sec, long usec) {
        return _poll(fd, POLLOUT, sec, usec);
    }

    // Waits for events on fd with a limit of sec seconds plus usec microseconds; a negative
    // limit is an error (-1, EINVAL) as it is for select().
    static int _poll(SOCKET fd, short events, long sec, long usec) {
        long long total = static_cast<long long>(sec) * 1000000 + usec;
        if (sec < 0 || total < 0) {
            errno = EINVAL;
            return -1;
        }
        timespec limit;
        limit.tv_sec = static_cast<time_t>(total / 1000000);
        limit.tv_nsec = static_cast<long>(total % 1000000) * 1000;
        pollfd p = {fd, events, 0};
        return ppoll(&p, 1, &limit, nullptr);
    }

    static int _socketError(SOCKET fd) {
        int err = 0;
        socklen_t len = sizeof err;
        if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) != 0) {
            return errno;
        }
        return err;
    }

    void _remember(const char* host, unsigned int port) {
        if (host != nullptr) {
            serviceAddr = newString(host);
        }
        servicePort = port;
    }

    // Fills addr: null is 127.0.0.1, a leading digit means dotted IPv4 (taken as it is),
    // anything else is a name looked up for its first IPv4 address. False when that fails.
    bool _resolve(const char* host, unsigned int port) {
        addr.sin_family = AF_INET;
        if (host == nullptr) {
            addr.sin_addr.s_addr = inet_addr("127.0.0.1");
        } else if (*host >= '0' && *host <= '9') {
            addr.sin_addr.s_addr = inet_addr(host);
        } else {
            hostent entry;
            hostent* found = nullptr;
            char work[2048];
            int herr = 0;
            if (gethostbyname_r(host, &entry, work, sizeof work, &found, &herr) != 0 ||
                found == nullptr || found->h_addr_list[0] == nullptr) {
                return false;
            }
            size_t n = static_cast<size_t>(found->h_length);
            memcpy(&addr.sin_addr, found->h_addr_list[0],
                   n < sizeof addr.sin_addr ? n : sizeof addr.sin_addr);
        }
        addr.sin_port = htons(static_cast<uint16_t>(port));
        return true;
    }

    void _warnConnectFailed(const char* host, unsigned int port, int err) {
        char reason[128];
        char line[512];
        snprintf(line, sizeof line, "connect to %s:%u failed: %s",
                 host != nullptr ? host : "127.0.0.1", port,
                 strerror_r(err, reason, sizeof reason));
        _log::instance().warn(line);
    }

    // Serialises disconnect() calls; send() and recv() never take it.
    mutex mtxState;
    // Held shared by waitForRead() during its wait, and whole by disconnect() to close.
    std::shared_mutex _waiting;

    // Read-ahead bytes not yet handed out are [_readPos, _readEnd) of _readAhead, which is
    // made by the first recv() that needs it. All three are used under mtxRecv only;
    // _readAheadBytes, their count, is written there and read by waitForRead() without it.
    std::unique_ptr<char[]> _readAhead;
    size_t _readPos;
    size_t _readEnd;
    std::atomic<size_t> _readAheadBytes;
};

typedef _tempSock<nullType> socks;

}  // namespace tavik

#endif  // TAVIK_TK_SOCKET_H
