#include "logging/cross_process_lock.h"

#include <stdio.h>

namespace kv {

namespace {

unsigned long long PathKey(const char* path) {
    unsigned long long hash = 1469598103934665603ull;  // FNV-1a of the lower-case path
    for (const char* p = path; *p; ++p) {
        char c = *p;
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
        if (c == '/') c = '\\';
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ull;
    }
    return hash;
}

bool ProcessEnded(DWORD pid) {
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, pid);
    if (!process) return GetLastError() == ERROR_INVALID_PARAMETER;  // no such process
    const bool ended = WaitForSingleObject(process, 0) == WAIT_OBJECT_0;
    CloseHandle(process);
    return ended;
}

}  // namespace

bool CrossProcessLock::Attach(const char* path) {
    const unsigned long long key = PathKey(path);
    if (word_ && key == key_) return true;
    Detach();
    char name[64];
    snprintf(name, sizeof name, "Local\\KvDebugHelp.LogLock.%016llx", key);
    mapping_ = CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name);
    if (!mapping_) return false;
    word_ = static_cast<volatile LONG*>(MapViewOfFile(mapping_, FILE_MAP_WRITE, 0, 0, sizeof(LONG)));
    if (!word_) {
        CloseHandle(mapping_);
        mapping_ = nullptr;
        return false;
    }
    key_ = key;
    return true;
}

void CrossProcessLock::Detach() {
    if (word_) UnmapViewOfFile(const_cast<LONG*>(word_));
    if (mapping_) CloseHandle(mapping_);
    word_ = nullptr;
    mapping_ = nullptr;
    key_ = 0;
}

bool CrossProcessLock::Acquire(DWORD timeoutMs) {
    if (!word_) return false;
    const LONG self = LONG(GetCurrentProcessId());
    const DWORD start = GetTickCount();
    DWORD lastOwnerCheck = start;
    for (unsigned spin = 0;; ++spin) {
        if (InterlockedCompareExchange(word_, self, 0) == 0) return true;
        if (spin < 64) {
            YieldProcessor();
            continue;
        }
        if (spin < 128) SwitchToThread();
        else Sleep(1);
        const DWORD now = GetTickCount();
        if (now - lastOwnerCheck >= 500) {
            // A holder that died (or was killed) while writing never releases.
            lastOwnerCheck = now;
            const LONG owner = *word_;
            if (owner && owner != self && ProcessEnded(DWORD(owner)) &&
                InterlockedCompareExchange(word_, self, owner) == owner)
                return true;
        }
        if (now - start >= timeoutMs) return false;
    }
}

void CrossProcessLock::Release() {
    if (word_) InterlockedExchange(word_, 0);
}

}  // namespace kv
