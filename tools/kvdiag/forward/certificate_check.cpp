#include "forward/certificate_check.h"

#include <stdio.h>

#include <cstddef>

#include "forward/certificate_file.h"
#include "forward/certificate_names.h"
#include "platform/error_text.h"

namespace kvdiag {

namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
// Plant networks are often cut off from the internet: the chain is built
// from what the collector sent and what this machine holds, without waiting
// on downloads of missing intermediates or revocation lists.
constexpr DWORD kChainFlags = CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL;
constexpr DWORD kUrlTimeoutMs = 1000;
// SECURITY_FLAG_IGNORE_CERT_CN_INVALID of wininet.h, which kvdiag does not otherwise need.
constexpr DWORD kIgnoreServerName = 0x00001000;

struct EngineOwner {
    HCERTCHAINENGINE engine = nullptr;
    ~EngineOwner() {
        if (engine) CertFreeCertificateChainEngine(engine);
    }
};

struct ChainOwner {
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    ~ChainOwner() {
        if (chain) CertFreeCertificateChain(chain);
    }
};

std::string Hex(DWORD value) {
    char text[16];
    snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(value));
    return text;
}

std::string Day(const FILETIME& time) {
    SYSTEMTIME t{};
    FileTimeToSystemTime(&time, &t);
    char text[16];
    snprintf(text, sizeof text, "%04u-%02u-%02u", t.wYear, t.wMonth, t.wDay);
    return text;
}

std::string Quoted(PCCERT_CONTEXT cert) { return "'" + CertificateSubject(cert) + "'"; }

// The engine whose only roots are the anchors. Windows 8 takes the largest
// structure and with it an anchor that is not self-signed (a site's issuing
// CA given alone); Windows 7 the one without dwExclusiveFlags. Where neither
// is known, null: the chain is then built by the machine's engine with the
// anchors beside it, and the walk in CheckServerCertificate alone decides
// whether it ends at one of them.
HCERTCHAINENGINE ExclusiveEngine(HCERTSTORE anchors) {
    CERT_CHAIN_ENGINE_CONFIG config{};
    config.hExclusiveRoot = anchors;
    config.dwUrlRetrievalTimeout = kUrlTimeoutMs;
    config.dwExclusiveFlags = CERT_CHAIN_EXCLUSIVE_ENABLE_CA_FLAG;
    for (const DWORD size : {DWORD(sizeof config), DWORD(offsetof(CERT_CHAIN_ENGINE_CONFIG, dwExclusiveFlags))}) {
        config.cbSize = size;
        HCERTCHAINENGINE engine = nullptr;
        if (CertCreateCertificateChainEngine(&config, &engine)) return engine;
    }
    return nullptr;
}

// Basic constraints say it is a CA, and allow `below` CA certificates under
// it in this chain (the server's own certificate not counted).
bool MaySign(PCCERT_CONTEXT cert, DWORD below, std::string& why) {
    const CERT_INFO* info = cert->pCertInfo;
    const PCERT_EXTENSION ext = CertFindExtension(szOID_BASIC_CONSTRAINTS2, info->cExtension, info->rgExtension);
    CERT_BASIC_CONSTRAINTS2_INFO constraints{};
    DWORD size = sizeof constraints;
    if (!ext || !CryptDecodeObjectEx(X509_ASN_ENCODING, X509_BASIC_CONSTRAINTS2, ext->Value.pbData, ext->Value.cbData, 0,
                                     nullptr, &constraints, &size) ||
        !constraints.fCA) {
        why = "signs another certificate but is not a certificate authority";
        return false;
    }
    if (constraints.fPathLenConstraint && below > constraints.dwPathLenConstraint) {
        why = "may have " + std::to_string(constraints.dwPathLenConstraint) + " authorities under it, not " + std::to_string(below);
        return false;
    }
    BYTE usage = 0;
    if (CertGetIntendedKeyUsage(X509_ASN_ENCODING, const_cast<CERT_INFO*>(info), &usage, 1) &&
        !(usage & CERT_KEY_CERT_SIGN_KEY_USAGE)) {
        why = "is not allowed to sign certificates (key usage)";
        return false;
    }
    return true;
}

bool SignedBy(PCCERT_CONTEXT subject, PCCERT_CONTEXT issuer) {
    return CertCompareCertificateName(X509_ASN_ENCODING, &subject->pCertInfo->Issuer, &issuer->pCertInfo->Subject) &&
           CryptVerifyCertificateSignatureEx(0, X509_ASN_ENCODING, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT,
                                             const_cast<CERT_CONTEXT*>(subject), CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
                                             const_cast<CERT_CONTEXT*>(issuer), 0, nullptr);
}

bool Holds(HCERTSTORE store, PCCERT_CONTEXT cert) {
    PCCERT_CONTEXT found = CertFindCertificateInStore(store, kEncoding, 0, CERT_FIND_EXISTING, cert, nullptr);
    if (found) CertFreeCertificateContext(found);
    return found != nullptr;
}

// kvdiag's own walk from the server's certificate up to the first trusted
// anchor. The chain engine checks most of this too (Windows', and Wine's in
// its way); it is done here again so that no refusal rests on one system's
// engine, and so that a refusal names the certificate and the reason.
// Fails with the reason unless the walk reaches an anchor.
Failure WalkChain(const CERT_SIMPLE_CHAIN& chain, HCERTSTORE anchors, const std::string& trusted) {
    for (DWORD i = 0; i < chain.cElement; ++i) {
        const PCCERT_CONTEXT cert = chain.rgpElement[i]->pCertContext;
        const LONG time = CertVerifyTimeValidity(nullptr, cert->pCertInfo);
        if (time != 0)
            return Failure("certificate " + Quoted(cert) + " in the collector's chain " +
                           (time < 0 ? "is not valid before " + Day(cert->pCertInfo->NotBefore)
                                     : "expired on " + Day(cert->pCertInfo->NotAfter)));
        std::string why;
        if (i > 0 && !MaySign(cert, i - 1, why))
            return Failure("certificate " + Quoted(cert) + " in the collector's chain " + why);
        // The collector's own certificate is no authority, even when the CA
        // file holds it: an authority issues, it is not the one it vouches for.
        if (i > 0 && Holds(anchors, cert)) return {};
        const PCCERT_CONTEXT issuer = i + 1 < chain.cElement ? chain.rgpElement[i + 1]->pCertContext : cert;
        if (!SignedBy(cert, issuer))
            return Failure(i + 1 < chain.cElement
                               ? "the signature of " + Quoted(cert) + " in the collector's chain does not verify"
                               : "the collector's chain ends at " + Quoted(cert) +
                                     ", whose issuer the collector did not send and is not in " + trusted);
    }
    const PCCERT_CONTEXT top = chain.rgpElement[chain.cElement - 1]->pCertContext;
    return Failure(chain.cElement == 1
                       ? "the collector's certificate " + Quoted(top) + " is self-signed, not issued by " + trusted
                       : "the collector's chain ends at " + Quoted(top) + ", which is not in " + trusted);
}

// The system's SSL policy for a server: trust, usage, dates and (for a DNS
// name) the name. An address is left to CertificateNamesHost: which forms of
// an address (IP entry, common name) a system's policy accepts differs
// between systems (Wine's accepts none).
DWORD SslPolicyError(PCCERT_CHAIN_CONTEXT chain, const std::string& host) {
    std::wstring name(host.begin(), host.end());
    SSL_EXTRA_CERT_CHAIN_POLICY_PARA ssl{};
    ssl.cbSize = sizeof ssl;
    ssl.dwAuthType = AUTHTYPE_SERVER;
    ssl.fdwChecks = IsIpAddress(host) ? kIgnoreServerName : 0;
    ssl.pwszServerName = &name[0];
    CERT_CHAIN_POLICY_PARA para{};
    para.cbSize = sizeof para;
    para.pvExtraPolicyPara = &ssl;
    CERT_CHAIN_POLICY_STATUS status{};
    status.cbSize = sizeof status;
    if (!CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, chain, &para, &status)) return GetLastError();
    return status.dwError;
}

}  // namespace

Failure CheckServerCertificate(PCCERT_CONTEXT server, const std::string& caFile, const std::string& hostName) {
    if (!server) {
        return Failure("the collector sent no certificate");
    }
    const bool ownAuthority = !caFile.empty();
    CertStore anchors(nullptr);
    if (ownAuthority) {
        if (Failure failure = LoadCertificateFile(caFile, anchors)) return failure;
    } else {
        anchors.reset(CertOpenStore(CERT_STORE_PROV_SYSTEM_A, 0, 0,
                                    CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_READONLY_FLAG, "Root"));
        if (!anchors) return Failure("cannot open this machine's trusted root certificates");
    }
    const std::string trusted = ownAuthority ? "the CA file " + caFile : "this machine's trusted roots";
    EngineOwner engine;
    if (ownAuthority) engine.engine = ExclusiveEngine(anchors.get());
    // What the collector sent, and the anchors where no exclusive engine holds them.
    CertStore extra(CertOpenStore(CERT_STORE_PROV_COLLECTION, 0, 0, 0, nullptr));
    if (!extra) {
        return Failure("cannot make a certificate store");
    }
    if (server->hCertStore) CertAddStoreToCollection(extra.get(), server->hCertStore, 0, 0);
    if (ownAuthority) CertAddStoreToCollection(extra.get(), anchors.get(), 0, 1);

    CERT_CHAIN_PARA para{};
    para.cbSize = sizeof para;
    LPSTR serverAuth[] = {const_cast<LPSTR>(szOID_PKIX_KP_SERVER_AUTH)};
    para.RequestedUsage.dwType = USAGE_MATCH_TYPE_AND;
    para.RequestedUsage.Usage.cUsageIdentifier = 1;
    para.RequestedUsage.Usage.rgpszUsageIdentifier = serverAuth;
    ChainOwner built;
    const HCERTCHAINENGINE chainEngine = engine.engine ? engine.engine : HCCE_LOCAL_MACHINE;
    if (!CertGetCertificateChain(chainEngine, server, nullptr, extra.get(), &para, kChainFlags, nullptr, &built.chain) ||
        !built.chain || built.chain->cChain == 0 || built.chain->rgpChain[0]->cElement == 0) {
        return Failure("the system could not build the collector's certificate chain (" + Hex(GetLastError()) + ")");
    }
    const CERT_SIMPLE_CHAIN& chain = *built.chain->rgpChain[0];
    if (Failure failure = WalkChain(chain, anchors.get(), trusted)) return failure;
    if (!CertificateNamesHost(server, hostName)) {
        return Failure("the collector's certificate " + Quoted(server) + " does not name " + hostName);
    }
    // The walk found one of the CA file's authorities in the chain. An engine
    // that does not take it as a root calls it an unknown root, or the chain
    // partial above it: where the exclusive engine is missing (before
    // Windows 7) or takes only self-signed roots (Windows 7, Wine 8; from
    // Windows 8 a site's issuing CA given alone is a root too). Only those
    // verdicts are the walk's to overrule; any other finding of the engine
    // (a bad signature, a wrong usage, a distrusted certificate) refuses the chain.
    const DWORD overruled = ownAuthority ? CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_IS_PARTIAL_CHAIN : 0;
    const DWORD ignored = CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION;
    const DWORD trust = built.chain->TrustStatus.dwErrorStatus & ~(overruled | ignored);
    if (trust) {
        return Failure("the system's chain engine refuses the collector's certificate chain (trust status " + Hex(trust) + ")");
    }
    const DWORD policy = SslPolicyError(built.chain, hostName);
    if (policy && !(overruled && (policy == DWORD(CERT_E_UNTRUSTEDROOT) || policy == DWORD(CERT_E_CHAINING)))) {
        return Failure("the system's SSL policy refuses the collector's certificate: " + kv::platform::ErrorText(policy) + " (" + Hex(policy) + ")");
    }
    return {};
}

}  // namespace kvdiag
