// Where the forwarder sends to: tcp://HOST[:PORT], udp://HOST[:PORT] or
// tls://HOST[:PORT] (514 by default, 6514 for TLS), and how a stream frames
// its messages.
#pragma once

#include <string>

#include "common/failure.h"

namespace kvdiag {

struct CollectorUrl {
    enum class Transport { Tcp, Udp, Tls };
    Transport transport = Transport::Tcp;
    std::string host;
    unsigned short port = 0;
    std::string text;  // as given

    // TCP and TLS are streams of frames; UDP sends one datagram a message.
    bool stream() const { return transport != Transport::Udp; }
};

// How a stream tells messages apart (RFC 6587): "LENGTH MESSAGE" (octet
// counting), or each message ended by a line feed, with the line feeds of a
// multi-line message sent as #012 (what collectors that split at line feeds,
// such as syslog-ng's network() source, need).
enum class Framing { OctetCounting, LineFeed };

// Fails for anything but the three forms with a host and, if given, a port
// of 1 to 65535.
Failure ParseCollectorUrl(const std::string& text, CollectorUrl& url);

}  // namespace kvdiag
