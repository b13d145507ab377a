#include "forward/collector_url.h"

#include <stdlib.h>
#include <string.h>

namespace kvdiag {

Failure ParseCollectorUrl(const std::string& text, CollectorUrl& url) {
    static const struct {
        const char* prefix;
        CollectorUrl::Transport transport;
    } kSchemes[] = {{"tcp://", CollectorUrl::Transport::Tcp},
                    {"udp://", CollectorUrl::Transport::Udp},
                    {"tls://", CollectorUrl::Transport::Tls}};
    url = CollectorUrl{};
    url.text = text;
    std::string rest;
    for (const auto& scheme : kSchemes) {
        if (text.compare(0, strlen(scheme.prefix), scheme.prefix) != 0) continue;
        url.transport = scheme.transport;
        rest = text.substr(strlen(scheme.prefix));
        break;
    }
    if (rest.empty()) {
        return Failure("the collector must be given as tcp://HOST[:PORT], udp://HOST[:PORT] or tls://HOST[:PORT]");
    }
    if (!rest.empty() && rest.back() == '/') rest.pop_back();
    constexpr long kSyslogPort = 514, kSyslogTlsPort = 6514;
    const long defaultPort = url.transport == CollectorUrl::Transport::Tls ? kSyslogTlsPort : kSyslogPort;
    // [v6 address]:port, [v6 address], host:port or host
    const size_t bracket = rest.rfind(']');
    size_t colon = rest.rfind(':');
    if (colon != std::string::npos && bracket != std::string::npos && colon < bracket) colon = std::string::npos;
    std::string host = colon == std::string::npos ? rest : rest.substr(0, colon);
    // An IPv6 address goes in brackets: a colon in a bare host is a port meant otherwise.
    const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (bracketed) host = host.substr(1, host.size() - 2);
    else if (host.find(':') != std::string::npos) host.clear();
    char* end = nullptr;
    const char* portText = colon == std::string::npos ? nullptr : rest.c_str() + colon + 1;
    const long port = portText ? strtol(portText, &end, 10) : defaultPort;
    const bool portOk = !portText || (end && !*end && end != portText);
    if (host.empty() || host.find_first_of("/ []") != std::string::npos || !portOk || port < 1 || port > 65535) {
        return Failure("'" + text + "' does not name a host and a port (1 to 65535)");
    }
    url.host = host;
    url.port = static_cast<unsigned short>(port);
    return {};
}

}  // namespace kvdiag
