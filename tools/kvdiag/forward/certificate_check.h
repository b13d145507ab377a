// Checks a server certificate against a certificate authority given as a PEM
// file: the chain the server sent leads to a certificate that authority
// signed, the certificate is valid now and names the host connected to.
#pragma once

#include <windows.h>
#include <wincrypt.h>

#include <string>

namespace kvdiag {

bool CheckServerCertificate(PCCERT_CONTEXT server, const std::string& caFile, const std::string& hostName,
                            std::string& error);

}  // namespace kvdiag
