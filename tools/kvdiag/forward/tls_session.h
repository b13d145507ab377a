// TLS on a connected socket through the system's own provider (SChannel):
// kvdiag carries no TLS library of its own.
#pragma once

#include <winsock2.h>
#include <windows.h>
#define SECURITY_WIN32
#include <security.h>

#include <string>

namespace kvdiag {

class TlsSession {
public:
    TlsSession() = default;
    ~TlsSession();
    TlsSession(const TlsSession&) = delete;
    TlsSession& operator=(const TlsSession&) = delete;

    // The handshake. With caFile (PEM) the collector's certificate must chain
    // up to that authority; without one, to a root the system trusts. Either
    // way it must name serverName and be valid now.
    bool Start(SOCKET socket, const std::string& serverName, const std::string& caFile, std::string& error);
    // Encrypts and sends all of data.
    bool Send(SOCKET socket, const char* data, size_t size, std::string& error);
    // Tells the collector the session ends (close_notify), best effort.
    void Shutdown(SOCKET socket);

private:
    bool Handshake(SOCKET socket, const std::string& serverName, std::string& error);

    CredHandle credentials_{};
    CtxtHandle context_{};
    bool haveCredentials_ = false;
    bool haveContext_ = false;
    SecPkgContext_StreamSizes sizes_{};
};

}  // namespace kvdiag
