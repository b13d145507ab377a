// Whether the certificate a collector presented may be trusted, decided by
// kvdiag itself before anything is sent, never by the TLS provider's own
// automatic check: the system's chain engine builds the chain (with --ca the
// authorities of that file are its only roots, without it the machine's
// trusted roots are), the system's SSL policy judges it with the host name,
// and kvdiag walks the chain itself on top: every signer a certificate
// authority allowed to sign that deep, every certificate valid now, every
// signature verified, the chain ending at a trusted authority, the host named.
// What only Windows proves: its engine's disallowed certificates and weak-
// algorithm policy, and a CA file's issuing CA (not self-signed) as a root
// of the exclusive engine (Windows 8); Wine's engine has none of these.
#pragma once

#include <windows.h>
#include <wincrypt.h>

#include <string>

#include "common/failure.h"

namespace kvdiag {

// True when server (as the TLS provider received it, with the intermediates
// the collector sent in its store) may be trusted for hostName; otherwise a
// failure with the reason. caFile: PEM or DER, empty for the machine's roots.
Failure CheckServerCertificate(PCCERT_CONTEXT server, const std::string& caFile, const std::string& hostName);

}  // namespace kvdiag
