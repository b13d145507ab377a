// The certificates of a file an engineer names with --ca: PEM (one or more
// "BEGIN CERTIFICATE" blocks, a bundle) or a single DER certificate.
#pragma once

#include <windows.h>
#include <wincrypt.h>

#include <string>

namespace kvdiag {

// A certificate store held for the life of the object.
class CertStore {
public:
    explicit CertStore(HCERTSTORE store = nullptr) : store_(store) {}
    ~CertStore() {
        if (store_) CertCloseStore(store_, 0);
    }
    CertStore(const CertStore&) = delete;
    CertStore& operator=(const CertStore&) = delete;
    HCERTSTORE get() const { return store_; }
    explicit operator bool() const { return store_ != nullptr; }
    HCERTSTORE release() {
        const HCERTSTORE store = store_;
        store_ = nullptr;
        return store;
    }

private:
    HCERTSTORE store_;
};

// Every certificate of the file in a memory store; null with the reason when
// the file cannot be read or holds no certificate.
HCERTSTORE LoadCertificateFile(const std::string& path, std::string& error);

}  // namespace kvdiag
