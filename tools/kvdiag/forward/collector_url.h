// Where the forwarder sends to: tcp://HOST:PORT, udp://HOST:PORT or tls://HOST:PORT.
#pragma once

#include <string>

namespace kvdiag {

struct CollectorUrl {
    enum class Transport { Tcp, Udp, Tls };
    Transport transport = Transport::Tcp;
    std::string host;
    unsigned short port = 0;
    std::string text;  // as given

    // TCP and TLS streams carry octet-counted frames; UDP one datagram a message.
    bool stream() const { return transport != Transport::Udp; }
};

// False (with the reason) for anything but the three forms with a host and a port of 1 to 65535.
bool ParseCollectorUrl(const std::string& text, CollectorUrl& url, std::string& error);

}  // namespace kvdiag
