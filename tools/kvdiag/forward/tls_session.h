// TLS on a connected socket through the system's own provider (SChannel):
// kvdiag carries no TLS library of its own.
#pragma once

#include <winsock2.h>
#include <windows.h>
#define SECURITY_WIN32
#include <security.h>

#include <string>

#include "common/failure.h"

namespace kvdiag {

class TlsSession {
public:
    TlsSession() = default;
    ~TlsSession();
    TlsSession(const TlsSession&) = delete;
    TlsSession& operator=(const TlsSession&) = delete;

    // The handshake. The collector's certificate is checked by
    // CheckServerCertificate (with caFile's authorities, or the machine's
    // roots when it is empty) before the handshake ends; a refused one ends
    // it with "refused: " and the reason.
    Failure Start(SOCKET socket, const std::string& serverName, const std::string& caFile);
    // Encrypts and sends all of data.
    Failure Send(SOCKET socket, const char* data, size_t size);
    // Tells the collector the session ends (close_notify), best effort.
    void Shutdown(SOCKET socket);

private:
    Failure Handshake(SOCKET socket);
    // Fails when the collector's certificate is refused, or (mustHave) not there.
    Failure CheckCollector(bool mustHave);

    CredHandle credentials_{};
    CtxtHandle context_{};
    bool haveCredentials_ = false;
    bool haveContext_ = false;
    bool collectorChecked_ = false;
    std::string serverName_;
    std::string caFile_;
    SecPkgContext_StreamSizes sizes_{};
};

}  // namespace kvdiag
