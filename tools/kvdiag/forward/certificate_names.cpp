#include "forward/certificate_names.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <string.h>

namespace kvdiag {

namespace {

std::string Lowered(std::string text) {
    for (char& c : text) c = (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
    if (!text.empty() && text.back() == '.') text.pop_back();  // "collector.site." is "collector.site"
    return text;
}

// "*.site.example" stands for exactly one label in front of a name of at
// least two labels; "*" anywhere else, or in front of a top-level name
// ("*.com"), stands for nothing.
bool NameMatches(const std::string& pattern, const std::string& host) {
    const std::string p = Lowered(pattern), h = Lowered(host);
    if (p.compare(0, 2, "*.") == 0) {
        const std::string rest = p.substr(1);
        const size_t dot = h.find('.');
        return rest.find('*') == std::string::npos && rest.find('.', 1) != std::string::npos && dot != std::string::npos &&
               dot > 0 && h.compare(dot, std::string::npos, rest) == 0;
    }
    return p.find('*') == std::string::npos && !p.empty() && p == h;
}

std::string Narrow(const wchar_t* wide) {
    char text[512];
    if (!WideCharToMultiByte(CP_UTF8, 0, wide, -1, text, sizeof text, nullptr, nullptr)) return {};
    return text;
}

}  // namespace

bool IsIpAddress(const std::string& host) {
    in_addr v4;
    in6_addr v6;
    return inet_pton(AF_INET, host.c_str(), &v4) == 1 || inet_pton(AF_INET6, host.c_str(), &v6) == 1;
}

bool CertificateNamesHost(PCCERT_CONTEXT cert, const std::string& host) {
    in_addr v4;
    in6_addr v6;
    const bool isV4 = inet_pton(AF_INET, host.c_str(), &v4) == 1;
    const bool isV6 = !isV4 && inet_pton(AF_INET6, host.c_str(), &v6) == 1;
    const CERT_INFO* info = cert->pCertInfo;
    const PCERT_EXTENSION ext = CertFindExtension(szOID_SUBJECT_ALT_NAME2, info->cExtension, info->rgExtension);
    if (ext) {
        CERT_ALT_NAME_INFO* names = nullptr;
        DWORD size = 0;
        if (!CryptDecodeObjectEx(X509_ASN_ENCODING, X509_ALTERNATE_NAME, ext->Value.pbData, ext->Value.cbData,
                                 CRYPT_DECODE_ALLOC_FLAG, nullptr, &names, &size))
            return false;  // a name list that cannot be read names no one
        bool found = false, any = false;
        for (DWORD i = 0; i < names->cAltEntry && !found; ++i) {
            const CERT_ALT_NAME_ENTRY& e = names->rgAltEntry[i];
            if (e.dwAltNameChoice == CERT_ALT_NAME_DNS_NAME) {
                any = true;
                found = !isV4 && !isV6 && NameMatches(Narrow(e.pwszDNSName), host);
            } else if (e.dwAltNameChoice == CERT_ALT_NAME_IP_ADDRESS) {
                any = true;
                found = (isV4 && e.IPAddress.cbData == 4 && !memcmp(e.IPAddress.pbData, &v4, 4)) ||
                        (isV6 && e.IPAddress.cbData == 16 && !memcmp(e.IPAddress.pbData, &v6, 16));
            }
        }
        LocalFree(names);
        if (any) return found;
    }
    char commonName[256] = "";
    CertGetNameStringA(cert, CERT_NAME_ATTR_TYPE, 0, const_cast<char*>(szOID_COMMON_NAME), commonName, sizeof commonName);
    // An address in a common name counts only written exactly so (no wildcard).
    return (isV4 || isV6) ? host == commonName : NameMatches(commonName, host);
}

std::string CertificateSubject(PCCERT_CONTEXT cert) {
    char name[512] = "";
    CertNameToStrA(X509_ASN_ENCODING, &cert->pCertInfo->Subject, CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG, name,
                   sizeof name);
    return name[0] ? name : "(no subject)";
}

}  // namespace kvdiag
