#include "forward/certificate_file.h"

#include <vector>

#include "platform/error_text.h"
#include "platform/small_file.h"

namespace kvdiag {

namespace {

constexpr size_t kMaxFileBytes = 1024 * 1024;  // a bundle of a few hundred certificates; more is no CA file

bool AddEncoded(HCERTSTORE store, const BYTE* der, DWORD size) {
    return CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, der, size, CERT_STORE_ADD_USE_EXISTING, nullptr);
}

// Each "-----BEGIN CERTIFICATE-----" block; other blocks (keys, CRLs) are passed over.
int AddPemBlocks(HCERTSTORE store, const std::string& text, bool& damaged) {
    static const std::string kBegin = "-----BEGIN CERTIFICATE-----", kEnd = "-----END CERTIFICATE-----";
    int added = 0;
    for (size_t at = text.find(kBegin); at != std::string::npos; at = text.find(kBegin, at)) {
        const size_t end = text.find(kEnd, at);
        if (end == std::string::npos) {
            damaged = true;
            break;
        }
        const std::string block = text.substr(at, end + kEnd.size() - at);
        at = end + kEnd.size();
        DWORD size = 0;
        std::vector<BYTE> der;
        bool ok = CryptStringToBinaryA(block.c_str(), DWORD(block.size()), CRYPT_STRING_BASE64HEADER, nullptr, &size,
                                       nullptr, nullptr) != FALSE;
        if (ok) {
            der.resize(size);
            ok = CryptStringToBinaryA(block.c_str(), DWORD(block.size()), CRYPT_STRING_BASE64HEADER, der.data(), &size,
                                      nullptr, nullptr) &&
                 AddEncoded(store, der.data(), size);
        }
        damaged |= !ok;
        added += ok;
    }
    return added;
}

}  // namespace

Failure LoadCertificateFile(const std::string& path, CertStore& loaded) {
    std::string bytes;
    if (const DWORD failure = kv::platform::ReadSmallFile(path, kMaxFileBytes, bytes)) {
        return Failure("cannot read the CA file " + path, failure);
    }
    CertStore store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, CERT_STORE_CREATE_NEW_FLAG, nullptr));
    if (!store) {
        return Failure("cannot make a certificate store");
    }
    bool damaged = false;
    const bool pem = bytes.find("-----BEGIN ") != std::string::npos;
    const int added = pem ? AddPemBlocks(store.get(), bytes, damaged)
                          : AddEncoded(store.get(), reinterpret_cast<const BYTE*>(bytes.data()), DWORD(bytes.size()));
    // A bundle with one damaged block is refused whole: which authority the
    // engineer meant is then not certain.
    if (!added || damaged) {
        return Failure("the CA file " + path + (damaged ? " holds a damaged certificate" : " holds no certificate"));
    }
    loaded.reset(store.release());
    return {};
}

}  // namespace kvdiag
