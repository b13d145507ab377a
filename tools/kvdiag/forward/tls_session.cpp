#include "forward/tls_session.h"

#include <schannel.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#include "forward/certificate_check.h"

namespace kvdiag {

namespace {

constexpr DWORD kContextFlags = ISC_REQ_SEQUENCE_DETECT | ISC_REQ_REPLAY_DETECT | ISC_REQ_CONFIDENTIALITY |
                                ISC_REQ_EXTENDED_ERROR | ISC_REQ_ALLOCATE_MEMORY | ISC_REQ_STREAM;

bool SendAll(SOCKET socket, const char* data, size_t size) {
    while (size) {
        const int sent = send(socket, data, int(size > 1 << 20 ? 1 << 20 : size), 0);
        if (sent <= 0) return false;
        data += sent;
        size -= size_t(sent);
    }
    return true;
}

std::string Hex(SECURITY_STATUS status) {
    char text[16];
    snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(status));
    return text;
}

}  // namespace

TlsSession::~TlsSession() {
    if (haveContext_) DeleteSecurityContext(&context_);
    if (haveCredentials_) FreeCredentialsHandle(&credentials_);
}

Failure TlsSession::Start(SOCKET socket, const std::string& serverName, const std::string& caFile) {
    serverName_ = serverName;
    caFile_ = caFile;
    SCHANNEL_CRED cred{};
    cred.dwVersion = SCHANNEL_CRED_VERSION;
    // The provider checks nothing itself (whether it would, and how well,
    // differs between systems): CheckCollector decides, in the handshake.
    cred.dwFlags = SCH_CRED_NO_DEFAULT_CREDS | SCH_CRED_MANUAL_CRED_VALIDATION | SCH_USE_STRONG_CRYPTO;
    // TLS 1.2: after its handshake the collector sends nothing (TLS 1.3 would
    // send session tickets), so anything to read means it closed the session.
    cred.grbitEnabledProtocols = SP_PROT_TLS1_2_CLIENT;
    SECURITY_STATUS status = AcquireCredentialsHandleA(nullptr, const_cast<char*>(UNISP_NAME_A), SECPKG_CRED_OUTBOUND,
                                                       nullptr, &cred, nullptr, nullptr, &credentials_, nullptr);
    if (status != SEC_E_OK) {
        return Failure("the system's TLS provider gave no credentials (" + Hex(status) + ")");
    }
    haveCredentials_ = true;
    if (Failure failure = Handshake(socket)) return failure;
    // A provider that gave the certificate only now: still before any record is sent.
    if (!collectorChecked_)
        if (Failure failure = CheckCollector(true)) return failure;
    status = QueryContextAttributesA(&context_, SECPKG_ATTR_STREAM_SIZES, &sizes_);
    if (status != SEC_E_OK) {
        return Failure("the TLS session gave no record sizes (" + Hex(status) + ")");
    }
    return {};
}

// Checks the collector's certificate once the provider has it. Checked
// before the client's last handshake message leaves, a refused collector
// never gets a session at all, let alone a record.
Failure TlsSession::CheckCollector(bool mustHave) {
    PCCERT_CONTEXT server = nullptr;
    const SECURITY_STATUS status = QueryContextAttributesA(&context_, SECPKG_ATTR_REMOTE_CERT_CONTEXT, &server);
    if (status != SEC_E_OK || !server) return mustHave ? Failure("the collector sent no certificate") : Failure();
    collectorChecked_ = true;
    const Failure refusal = CheckServerCertificate(server, caFile_, serverName_);
    CertFreeCertificateContext(server);
    return refusal ? Failure("refused: " + refusal.text()) : Failure();
}

Failure TlsSession::Handshake(SOCKET socket) {
    std::vector<char> in;
    bool needInput = false;
    for (int round = 0; round < 64; ++round) {
        if (needInput) {
            char chunk[16384];
            const int got = recv(socket, chunk, sizeof chunk, 0);
            if (got <= 0) {
                return Failure("the collector ended the TLS handshake");
            }
            in.insert(in.end(), chunk, chunk + got);
        }
        SecBuffer inBuffers[2] = {{ULONG(in.size()), SECBUFFER_TOKEN, in.data()}, {0, SECBUFFER_EMPTY, nullptr}};
        SecBufferDesc inDesc{SECBUFFER_VERSION, 2, inBuffers};
        SecBuffer outBuffer{0, SECBUFFER_TOKEN, nullptr};
        SecBufferDesc outDesc{SECBUFFER_VERSION, 1, &outBuffer};
        ULONG attributes = 0;
        const SECURITY_STATUS status = InitializeSecurityContextA(
            &credentials_, haveContext_ ? &context_ : nullptr, const_cast<char*>(serverName_.c_str()), kContextFlags, 0, 0,
            haveContext_ ? &inDesc : nullptr, 0, haveContext_ ? nullptr : &context_, &outDesc, &attributes, nullptr);
        haveContext_ = true;
        if (!collectorChecked_ && (status == SEC_E_OK || status == SEC_I_CONTINUE_NEEDED)) {
            if (Failure refusal = CheckCollector(false)) {
                if (outBuffer.pvBuffer) FreeContextBuffer(outBuffer.pvBuffer);
                return refusal;
            }
        }
        if (outBuffer.pvBuffer) {
            const bool sent = !outBuffer.cbBuffer || SendAll(socket, static_cast<char*>(outBuffer.pvBuffer), outBuffer.cbBuffer);
            FreeContextBuffer(outBuffer.pvBuffer);
            if (!sent) {
                return Failure("the collector went away during the TLS handshake");
            }
        }
        if (status == SEC_E_OK) return {};  // the collector sends nothing after it
        if (status == SEC_E_INCOMPLETE_MESSAGE) {
            needInput = true;
            continue;
        }
        if (status != SEC_I_CONTINUE_NEEDED) {
            return Failure("TLS handshake failed (" + Hex(status) + ")");
        }
        // What the provider did not use yet stays for the next round.
        if (inBuffers[1].BufferType == SECBUFFER_EXTRA && inBuffers[1].cbBuffer) {
            in.erase(in.begin(), in.end() - long(inBuffers[1].cbBuffer));
            needInput = false;
        } else {
            in.clear();
            needInput = true;
        }
    }
    return Failure("TLS handshake did not finish");
}

Failure TlsSession::Send(SOCKET socket, const char* data, size_t size) {
    std::vector<char> record(sizes_.cbHeader + sizes_.cbMaximumMessage + sizes_.cbTrailer);
    while (size) {
        const ULONG part = ULONG(size < sizes_.cbMaximumMessage ? size : sizes_.cbMaximumMessage);
        memcpy(record.data() + sizes_.cbHeader, data, part);
        SecBuffer buffers[4] = {{sizes_.cbHeader, SECBUFFER_STREAM_HEADER, record.data()},
                                {part, SECBUFFER_DATA, record.data() + sizes_.cbHeader},
                                {sizes_.cbTrailer, SECBUFFER_STREAM_TRAILER, record.data() + sizes_.cbHeader + part},
                                {0, SECBUFFER_EMPTY, nullptr}};
        SecBufferDesc desc{SECBUFFER_VERSION, 4, buffers};
        const SECURITY_STATUS status = EncryptMessage(&context_, 0, &desc, 0);
        if (status != SEC_E_OK) {
            return Failure("TLS encryption failed (" + Hex(status) + ")");
        }
        if (!SendAll(socket, record.data(), buffers[0].cbBuffer + buffers[1].cbBuffer + buffers[2].cbBuffer)) {
            return Failure("the collector went away");
        }
        data += part;
        size -= part;
    }
    return {};
}

void TlsSession::Shutdown(SOCKET socket) {
    if (!haveContext_) return;
    DWORD type = SCHANNEL_SHUTDOWN;
    SecBuffer token{sizeof type, SECBUFFER_TOKEN, &type};
    SecBufferDesc tokenDesc{SECBUFFER_VERSION, 1, &token};
    if (ApplyControlToken(&context_, &tokenDesc) != SEC_E_OK) return;
    SecBuffer outBuffer{0, SECBUFFER_TOKEN, nullptr};
    SecBufferDesc outDesc{SECBUFFER_VERSION, 1, &outBuffer};
    ULONG attributes = 0;
    InitializeSecurityContextA(&credentials_, &context_, nullptr, kContextFlags, 0, 0, nullptr, 0, nullptr, &outDesc,
                               &attributes, nullptr);
    if (outBuffer.pvBuffer) {
        SendAll(socket, static_cast<char*>(outBuffer.pvBuffer), outBuffer.cbBuffer);
        FreeContextBuffer(outBuffer.pvBuffer);
    }
}

}  // namespace kvdiag
