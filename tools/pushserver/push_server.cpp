// The background thread polls the listener, a wake-up pipe and every open connection; it
// accepts and reads under the server's lock. Writers hold a connection's own send lock for a
// whole send so that close and reset never pull the descriptor from under a write.
#include "tools/pushserver/push_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace pushserver {

namespace {

// Length of the complete handshake at the start of text, 0 while it is incomplete: the
// identity line, then a login line followed by the blank line.
size_t handshakeLength(const std::string& text) {
    size_t identityEnd = text.find('\n');
    if (identityEnd == std::string::npos) {
        return 0;
    }
    size_t loginEnd = text.find("\n\n", identityEnd + 1);
    return loginEnd == std::string::npos ? 0 : loginEnd + 2;
}

}  // namespace

bool Handshake::parse(const std::string& text, Handshake* out) {
    if (handshakeLength(text) != text.size()) {
        return false;
    }
    size_t identityEnd = text.find('\n');
    std::string identity = text.substr(0, identityEnd);
    Handshake shake;
    shake.loginParam = text.substr(identityEnd + 1, text.size() - identityEnd - 3);
    size_t open = identity.find(":(");
    if (open != std::string::npos) {
        size_t close = identity.find(')', open + 2);
        if (close == std::string::npos) {
            return false;
        }
        shake.domain = identity.substr(0, open);
        shake.identifier = identity.substr(open + 2, close - open - 2);
        shake.userId = identity.substr(close + 1);
    } else {
        size_t colon = identity.find(':');
        if (colon == std::string::npos) {
            return false;
        }
        shake.domain = identity.substr(0, colon);
        shake.userId = identity.substr(colon + 1);
    }
    if (out != nullptr) {
        *out = shake;
    }
    return true;
}

std::string frame(const std::string& body) {
    char header[8];
    snprintf(header, sizeof header, "%04d", static_cast<int>(body.size() % 10000));
    return header + body;
}

struct PushServer::connection {
    int fd = -1;
    std::string bytes;
    bool peerClosed = false;
    std::mutex sending;
};

PushServer::PushServer() {
    if (pipe2(wakePipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        perror("push server: pipe");
        return;
    }
    worker = std::thread([this] { serve(); });
}

PushServer::~PushServer() {
    {
        std::lock_guard<std::mutex> guard(lock);
        ending = true;
    }
    wake();
    if (worker.joinable()) {
        worker.join();
    }
    stopListening();
    for (size_t i = 0; i < connections.size(); ++i) {
        shut(i, false);
    }
    for (int fd : wakePipe) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool PushServer::listen(int port, const char* address) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (address == nullptr || strcmp(address, "localhost") == 0) {
        address = "127.0.0.1";
    }
    if (inet_pton(AF_INET, address, &addr.sin_addr) != 1) {
        return false;
    }
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return false;
    }
    int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    socklen_t len = sizeof addr;
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || ::listen(fd, 128) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
        ::close(fd);
        return false;
    }
    {
        std::lock_guard<std::mutex> guard(lock);
        if (listenFd >= 0) {
            ::close(fd);
            return false;
        }
        listenFd = fd;
        boundPort = ntohs(addr.sin_port);
    }
    wake();
    return true;
}

int PushServer::port() const {
    std::lock_guard<std::mutex> guard(lock);
    return boundPort;
}

void PushServer::stopListening() {
    {
        std::lock_guard<std::mutex> guard(lock);
        if (listenFd < 0) {
            return;
        }
        ::close(listenFd);
        listenFd = -1;
    }
    wake();
}

size_t PushServer::connectionCount() const {
    std::lock_guard<std::mutex> guard(lock);
    return connections.size();
}

template <class Ready>
bool PushServer::waitUntil(millis limit, Ready ready) {
    std::unique_lock<std::mutex> guard(lock);
    return changed.wait_for(guard, limit, ready);
}

bool PushServer::waitForConnections(size_t n, millis limit) {
    return waitUntil(limit, [&] { return connections.size() >= n; });
}

bool PushServer::waitForHandshake(size_t conn, millis limit, Handshake* out) {
    std::string text;
    bool complete = waitUntil(limit, [&] {
        if (conn >= connections.size()) {
            return false;
        }
        const std::string& bytes = connections[conn]->bytes;
        size_t length = handshakeLength(bytes);
        text = bytes.substr(0, length);
        return length > 0;
    });
    return complete && Handshake::parse(text, out);
}

bool PushServer::waitForBytes(size_t conn, size_t n, millis limit) {
    return waitUntil(
        limit, [&] { return conn < connections.size() && connections[conn]->bytes.size() >= n; });
}

bool PushServer::waitForPeerClose(size_t conn, millis limit) {
    return waitUntil(limit,
                     [&] { return conn < connections.size() && connections[conn]->peerClosed; });
}

std::string PushServer::received(size_t conn) const {
    std::lock_guard<std::mutex> guard(lock);
    return conn < connections.size() ? connections[conn]->bytes : std::string();
}

bool PushServer::peerClosed(size_t conn) const {
    std::lock_guard<std::mutex> guard(lock);
    return conn < connections.size() && connections[conn]->peerClosed;
}

std::shared_ptr<PushServer::connection> PushServer::find(size_t conn) const {
    std::lock_guard<std::mutex> guard(lock);
    return conn < connections.size() ? connections[conn] : nullptr;
}

bool PushServer::sendFrame(size_t conn, const std::string& body) {
    return sendRaw(conn, frame(body));
}

bool PushServer::sendFrameSplit(size_t conn, const std::string& body,
                                const std::vector<size_t>& chunks, millis pause) {
    return sendPieces(conn, frame(body), chunks, pause);
}

bool PushServer::sendFrameBytewise(size_t conn, const std::string& body, millis pause) {
    std::string bytes = frame(body);
    return sendPieces(conn, bytes, std::vector<size_t>(bytes.size(), 1), pause);
}

bool PushServer::sendRaw(size_t conn, const std::string& bytes) {
    return sendPieces(conn, bytes, {}, millis(0));
}

bool PushServer::sendPieces(size_t conn, const std::string& bytes, const std::vector<size_t>& sizes,
                            millis pause) {
    std::shared_ptr<connection> c = find(conn);
    if (!c) {
        return false;
    }
    std::lock_guard<std::mutex> sendGuard(c->sending);
    int fd;
    {
        std::lock_guard<std::mutex> guard(lock);
        fd = c->fd;
    }
    if (fd < 0) {
        return false;
    }
    size_t offset = 0;
    for (size_t piece = 0; offset < bytes.size(); ++piece) {
        if (piece > 0 && pause.count() > 0) {
            std::this_thread::sleep_for(pause);
        }
        size_t end =
            piece < sizes.size() ? std::min(bytes.size(), offset + sizes[piece]) : bytes.size();
        while (offset < end) {
            ssize_t sent = ::send(fd, bytes.data() + offset, end - offset, MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR) {
                continue;
            }
            if (sent <= 0) {
                return false;
            }
            offset += static_cast<size_t>(sent);
        }
    }
    return true;
}

bool PushServer::close(size_t conn) {
    return shut(conn, false);
}

bool PushServer::reset(size_t conn) {
    return shut(conn, true);
}

bool PushServer::shut(size_t conn, bool abort) {
    std::shared_ptr<connection> c = find(conn);
    if (!c) {
        return false;
    }
    std::lock_guard<std::mutex> sendGuard(c->sending);
    {
        std::lock_guard<std::mutex> guard(lock);
        if (c->fd < 0) {
            return false;
        }
        if (abort) {
            linger hard{1, 0};
            setsockopt(c->fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        } else {
            // Unread input would turn the close into a reset; take it in first.
            readFrom(c);
        }
        ::close(c->fd);
        c->fd = -1;
    }
    wake();
    return true;
}

void PushServer::wake() {
    char one = 1;
    if (wakePipe[1] >= 0 && write(wakePipe[1], &one, 1) < 0 && errno != EAGAIN) {
        perror("push server: wake");
    }
}

void PushServer::serve() {
    std::vector<pollfd> fds;
    std::vector<std::shared_ptr<connection>> polled;
    for (;;) {
        int listening;
        {
            std::lock_guard<std::mutex> guard(lock);
            if (ending) {
                return;
            }
            listening = listenFd;
            fds.assign(1, pollfd{wakePipe[0], POLLIN, 0});
            fds.push_back(pollfd{listening, POLLIN, 0});
            polled.clear();
            for (const auto& c : connections) {
                if (c->fd >= 0 && !c->peerClosed) {
                    fds.push_back(pollfd{c->fd, POLLIN, 0});
                    polled.push_back(c);
                }
            }
        }
        if (poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR) {
            perror("push server: poll");
            return;
        }
        char drain[64];
        while (read(wakePipe[0], drain, sizeof drain) > 0) {
        }
        std::lock_guard<std::mutex> guard(lock);
        if (fds[1].revents != 0 && listenFd == listening && listening >= 0) {
            acceptOne();
        }
        for (size_t i = 0; i < polled.size(); ++i) {
            // A connection closed during the poll may have had its number reused elsewhere.
            if (fds[i + 2].revents != 0 && polled[i]->fd == fds[i + 2].fd) {
                readFrom(polled[i]);
            }
        }
    }
}

void PushServer::acceptOne() {
    int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        return;
    }
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    auto c = std::make_shared<connection>();
    c->fd = fd;
    connections.push_back(c);
    changed.notify_all();
}

void PushServer::readFrom(const std::shared_ptr<connection>& c) {
    char buf[65536];
    for (;;) {
        ssize_t got = recv(c->fd, buf, sizeof buf, MSG_DONTWAIT);
        if (got > 0) {
            c->bytes.append(buf, static_cast<size_t>(got));
            continue;
        }
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            c->peerClosed = true;
        }
        break;
    }
    changed.notify_all();
}

}  // namespace pushserver
