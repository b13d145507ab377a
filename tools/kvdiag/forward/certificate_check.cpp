#include "forward/certificate_check.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <memory>
#include <vector>

namespace kvdiag {

namespace {

struct CertFree {
    void operator()(const CERT_CONTEXT* c) const { CertFreeCertificateContext(c); }
};
using CertPtr = std::unique_ptr<const CERT_CONTEXT, CertFree>;

CertPtr LoadPemCertificate(const std::string& path, std::string& error) {
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        error = "cannot open the CA file " + path;
        return nullptr;
    }
    std::string pem(256 * 1024, '\0');  // more than any certificate file needs
    DWORD got = 0;
    ReadFile(file, &pem[0], DWORD(pem.size()), &got, nullptr);
    CloseHandle(file);
    pem.resize(got);
    DWORD size = 0;
    if (!CryptStringToBinaryA(pem.c_str(), DWORD(pem.size()), CRYPT_STRING_BASE64HEADER, nullptr, &size, nullptr, nullptr)) {
        error = "the CA file " + path + " holds no PEM certificate";
        return nullptr;
    }
    std::vector<BYTE> der(size);
    CryptStringToBinaryA(pem.c_str(), DWORD(pem.size()), CRYPT_STRING_BASE64HEADER, der.data(), &size, nullptr, nullptr);
    CertPtr ca(CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(), size));
    if (!ca) error = "the CA file " + path + " holds no readable certificate";
    return ca;
}

bool SignedBy(PCCERT_CONTEXT subject, PCCERT_CONTEXT issuer) {
    return CertCompareCertificateName(X509_ASN_ENCODING, &subject->pCertInfo->Issuer, &issuer->pCertInfo->Subject) &&
           CryptVerifyCertificateSignatureEx(0, X509_ASN_ENCODING, CRYPT_VERIFY_CERT_SIGN_SUBJECT_CERT,
                                             const_cast<CERT_CONTEXT*>(subject), CRYPT_VERIFY_CERT_SIGN_ISSUER_CERT,
                                             const_cast<CERT_CONTEXT*>(issuer), 0, nullptr);
}

bool NameMatches(const std::string& pattern, const std::string& host) {
    if (pattern.size() > 2 && pattern.compare(0, 2, "*.") == 0) {
        const size_t dot = host.find('.');
        return dot != std::string::npos && _stricmp(pattern.c_str() + 1, host.c_str() + dot) == 0;
    }
    return _stricmp(pattern.c_str(), host.c_str()) == 0;
}

// Subject alternative names (DNS names and IP addresses); the common name
// only when the certificate has no alternative names.
bool NamesHost(PCCERT_CONTEXT cert, const std::string& host) {
    in_addr v4;
    in6_addr v6;
    const bool isV4 = inet_pton(AF_INET, host.c_str(), &v4) == 1;
    const bool isV6 = !isV4 && inet_pton(AF_INET6, host.c_str(), &v6) == 1;
    PCERT_EXTENSION ext = CertFindExtension(szOID_SUBJECT_ALT_NAME2, cert->pCertInfo->cExtension, cert->pCertInfo->rgExtension);
    if (ext) {
        CERT_ALT_NAME_INFO* names = nullptr;
        DWORD size = 0;
        if (!CryptDecodeObjectEx(X509_ASN_ENCODING, X509_ALTERNATE_NAME, ext->Value.pbData, ext->Value.cbData,
                                 CRYPT_DECODE_ALLOC_FLAG, nullptr, &names, &size))
            return false;
        bool found = false;
        for (DWORD i = 0; i < names->cAltEntry && !found; ++i) {
            const CERT_ALT_NAME_ENTRY& e = names->rgAltEntry[i];
            if (e.dwAltNameChoice == CERT_ALT_NAME_DNS_NAME && !isV4 && !isV6) {
                char dns[256];
                WideCharToMultiByte(CP_ACP, 0, e.pwszDNSName, -1, dns, sizeof dns, nullptr, nullptr);
                dns[sizeof dns - 1] = '\0';
                found = NameMatches(dns, host);
            } else if (e.dwAltNameChoice == CERT_ALT_NAME_IP_ADDRESS) {
                found = (isV4 && e.IPAddress.cbData == 4 && !memcmp(e.IPAddress.pbData, &v4, 4)) ||
                        (isV6 && e.IPAddress.cbData == 16 && !memcmp(e.IPAddress.pbData, &v6, 16));
            }
        }
        LocalFree(names);
        return found;
    }
    char commonName[256] = "";
    CertGetNameStringA(cert, CERT_NAME_ATTR_TYPE, 0, const_cast<char*>(szOID_COMMON_NAME), commonName, sizeof commonName);
    return NameMatches(commonName, host);
}

}  // namespace

bool CheckServerCertificate(PCCERT_CONTEXT server, const std::string& caFile, const std::string& hostName,
                            std::string& error) {
    CertPtr ca = LoadPemCertificate(caFile, error);
    if (!ca) return false;
    if (CertVerifyTimeValidity(nullptr, server->pCertInfo) != 0) {
        error = "the collector's certificate is not valid now";
        return false;
    }
    if (!NamesHost(server, hostName)) {
        error = "the collector's certificate does not name " + hostName;
        return false;
    }
    // Up the chain the server sent, through at most a few intermediates.
    CertPtr current(CertDuplicateCertificateContext(server));
    for (int depth = 0; depth < 8 && current; ++depth) {
        if (SignedBy(current.get(), ca.get())) return true;
        CertPtr issuer(CertFindCertificateInStore(server->hCertStore, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0,
                                                  CERT_FIND_SUBJECT_NAME, &current->pCertInfo->Issuer, nullptr));
        if (!issuer || CertCompareCertificate(X509_ASN_ENCODING, issuer->pCertInfo, current->pCertInfo) ||
            !SignedBy(current.get(), issuer.get()))
            break;
        current = std::move(issuer);
    }
    error = "the collector's certificate was not issued by the authority in " + caFile;
    return false;
}

}  // namespace kvdiag
