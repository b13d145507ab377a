#include "forward/collector_link.h"

#include <ws2tcpip.h>

#include "forward/tls_session.h"

namespace kvdiag {

namespace {

constexpr DWORD kConnectTimeoutMs = 5000;
constexpr DWORD kIoTimeoutMs = 30000;
// Larger datagrams are cut: many collectors take no more over UDP.
constexpr size_t kMaxDatagram = 8192;

Failure SocketFailure(const std::string& what) { return Failure(what, DWORD(WSAGetLastError())); }

// Connects within the timeout, so that an unreachable host does not hold up
// a stop for the twenty seconds a blocking connect may take.
bool ConnectWithin(SOCKET s, const addrinfo* address, DWORD timeoutMs) {
    u_long nonBlocking = 1;
    ioctlsocket(s, FIONBIO, &nonBlocking);
    if (connect(s, address->ai_addr, int(address->ai_addrlen)) != 0 && WSAGetLastError() != WSAEWOULDBLOCK) return false;
    fd_set writable, failed;
    FD_ZERO(&writable);
    FD_ZERO(&failed);
    FD_SET(s, &writable);
    FD_SET(s, &failed);
    timeval timeout{long(timeoutMs / 1000), long(timeoutMs % 1000) * 1000};
    if (select(0, nullptr, &writable, &failed, &timeout) != 1 || !FD_ISSET(s, &writable)) return false;
    nonBlocking = 0;
    ioctlsocket(s, FIONBIO, &nonBlocking);
    return true;
}

}  // namespace

WinsockUse::WinsockUse() {
    WSADATA data;
    ok_ = WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

WinsockUse::~WinsockUse() {
    if (ok_) WSACleanup();
}

CollectorLink::CollectorLink(const CollectorUrl& url, const std::string& caFile, Framing framing)
    : url_(url), caFile_(caFile), framing_(framing) {}

CollectorLink::~CollectorLink() { Close(); }

Failure CollectorLink::Connect() {
    Close();
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = url_.stream() ? SOCK_STREAM : SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(url_.host.c_str(), std::to_string(url_.port).c_str(), &hints, &found) != 0 || !found) {
        return SocketFailure("cannot resolve " + url_.host);
    }
    for (const addrinfo* a = found; a && socket_ == INVALID_SOCKET; a = a->ai_next) {
        SOCKET s = socket(a->ai_family, a->ai_socktype, a->ai_protocol);
        if (s == INVALID_SOCKET) continue;
        if (url_.stream() ? ConnectWithin(s, a, kConnectTimeoutMs) : connect(s, a->ai_addr, int(a->ai_addrlen)) == 0)
            socket_ = s;
        else
            closesocket(s);
    }
    freeaddrinfo(found);
    if (socket_ == INVALID_SOCKET) return Failure("cannot connect to " + url_.text);
    const DWORD timeout = kIoTimeoutMs;
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&timeout), sizeof timeout);
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&timeout), sizeof timeout);
    if (url_.transport == CollectorUrl::Transport::Tls) {
        tls_.reset(new TlsSession);
        if (Failure failure = tls_->Start(socket_, url_.host, caFile_)) {
            tls_.reset();
            Close();
            return failure;
        }
    }
    return {};
}

Failure CollectorLink::Send(const std::vector<std::string>& messages) {
    if (!connected()) {
        return Failure("not connected");
    }
    if (!url_.stream()) {
        // Nothing tells whether a datagram arrived; a refused one only
        // shows as an error on a later send, which is ignored alike.
        for (const std::string& m : messages) send(socket_, m.data(), int(m.size() < kMaxDatagram ? m.size() : kMaxDatagram), 0);
        return {};
    }
    std::string frames;
    for (const std::string& m : messages) {
        if (framing_ == Framing::OctetCounting) {
            frames += std::to_string(m.size()) + " " + m;
        } else {
            for (char c : m) {
                if (c == '\n') frames += "#012";
                else frames += c;
            }
            frames += '\n';
        }
        if (frames.size() < (1u << 20)) continue;
        if (Failure failure = SendBytes(frames)) return failure;
        frames.clear();
    }
    return frames.empty() ? Failure() : SendBytes(frames);
}

Failure CollectorLink::SendBytes(const std::string& bytes) {
    Failure failure;
    if (tls_) {
        failure = tls_->Send(socket_, bytes.data(), bytes.size());
    } else {
        bool sent = true;
        for (size_t done = 0; sent && done < bytes.size();) {
            const int n = send(socket_, bytes.data() + done, int(bytes.size() - done), 0);
            sent = n > 0;
            done += sent ? size_t(n) : 0;
        }
        if (!sent) failure = SocketFailure("the collector went away");
    }
    if (failure) Close();
    return failure;
}

bool CollectorLink::Alive() {
    if (!connected()) return false;
    if (!url_.stream()) return true;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(socket_, &readable);
    timeval now{0, 0};
    const int ready = select(0, &readable, nullptr, nullptr, &now);
    if (ready == 0) return true;
    Close();
    return false;
}

void CollectorLink::Close() {
    if (socket_ == INVALID_SOCKET) return;
    if (tls_) tls_->Shutdown(socket_);
    tls_.reset();
    closesocket(socket_);
    socket_ = INVALID_SOCKET;
}

}  // namespace kvdiag
