#include "forward/collector_url.h"

#include <stdlib.h>
#include <string.h>

namespace kvdiag {

bool ParseCollectorUrl(const std::string& text, CollectorUrl& url, std::string& error) {
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
        error = "the collector must be given as tcp://HOST:PORT, udp://HOST:PORT or tls://HOST:PORT";
        return false;
    }
    if (!rest.empty() && rest.back() == '/') rest.pop_back();
    // [v6 address]:port or host:port
    size_t colon = rest.rfind(':');
    std::string host = colon == std::string::npos ? std::string() : rest.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    char* end = nullptr;
    const long port = colon == std::string::npos ? 0 : strtol(rest.c_str() + colon + 1, &end, 10);
    if (host.empty() || host.find_first_of("/ []") != std::string::npos || !end || *end || end == rest.c_str() + colon + 1 ||
        port < 1 || port > 65535) {
        error = "'" + text + "' does not name a host and a port (1 to 65535)";
        return false;
    }
    url.host = host;
    url.port = static_cast<unsigned short>(port);
    return true;
}

}  // namespace kvdiag
