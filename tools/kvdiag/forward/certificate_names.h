// What a certificate says about whom it belongs to.
#pragma once

#include <windows.h>
#include <wincrypt.h>

#include <string>

namespace kvdiag {

// True when the certificate names host: a DNS name (a wildcard standing for
// the whole leftmost label only) or an IP address among its subject
// alternative names; its common name only when it has none of those.
bool CertificateNamesHost(PCCERT_CONTEXT cert, const std::string& host);

// True for an IPv4 or IPv6 address written as such.
bool IsIpAddress(const std::string& host);

// The subject as "CN=..., O=...", for messages.
std::string CertificateSubject(PCCERT_CONTEXT cert);

}  // namespace kvdiag
