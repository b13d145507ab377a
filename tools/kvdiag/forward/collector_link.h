// The connection to the collector. A stream (TCP, TLS) carries each message
// in a frame (Framing); UDP sends one datagram a message and promises nothing.
#pragma once

#include <winsock2.h>

#include <memory>
#include <string>
#include <vector>

#include "forward/collector_url.h"

namespace kvdiag {

class TlsSession;

class CollectorLink {
public:
    CollectorLink(const CollectorUrl& url, const std::string& caFile, Framing framing = Framing::OctetCounting);
    ~CollectorLink();
    CollectorLink(const CollectorLink&) = delete;
    CollectorLink& operator=(const CollectorLink&) = delete;

    Failure Connect();
    bool connected() const { return socket_ != INVALID_SOCKET; }
    // Sends the messages in order; fails when the connection broke (it is then closed).
    Failure Send(const std::vector<std::string>& messages);
    // A collector only ever listens: anything to read on a stream means it
    // closed or reset the connection. UDP is always "alive".
    bool Alive();
    void Close();

private:
    Failure SendBytes(const std::string& bytes);

    CollectorUrl url_;
    std::string caFile_;
    Framing framing_;
    SOCKET socket_ = INVALID_SOCKET;
    std::unique_ptr<TlsSession> tls_;
};

// Winsock for the life of the object.
class WinsockUse {
public:
    WinsockUse();
    ~WinsockUse();
    WinsockUse(const WinsockUse&) = delete;
    WinsockUse& operator=(const WinsockUse&) = delete;
    bool ok() const { return ok_; }

private:
    bool ok_ = false;
};

}  // namespace kvdiag
