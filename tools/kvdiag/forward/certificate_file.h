// The certificates of a file an engineer names with --ca: PEM (one or more
// "BEGIN CERTIFICATE" blocks, a bundle) or a single DER certificate.
#pragma once

#include <windows.h>
#include <wincrypt.h>

#include <string>

#include "common/failure.h"

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
    void reset(HCERTSTORE store) {
        if (store_) CertCloseStore(store_, 0);
        store_ = store;
    }
    HCERTSTORE release() {
        const HCERTSTORE store = store_;
        store_ = nullptr;
        return store;
    }

private:
    HCERTSTORE store_;
};

// Every certificate of the file, in a memory store put into loaded; fails
// when the file cannot be read or holds no certificate.
Failure LoadCertificateFile(const std::string& path, CertStore& loaded);

}  // namespace kvdiag
