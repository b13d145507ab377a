// A lock shared by every process that writes one log file: a word in a named
// shared-memory page, taken with an interlocked exchange. Taking it free costs
// no call into the system, which keeps it cheap enough for every log line.
#pragma once

#include <windows.h>

namespace kv {

class CrossProcessLock {
public:
    CrossProcessLock() = default;
    ~CrossProcessLock() { Detach(); }
    CrossProcessLock(const CrossProcessLock&) = delete;
    CrossProcessLock& operator=(const CrossProcessLock&) = delete;

    // Attaches to the lock of a file path (case-insensitive); keeps the current
    // page when the path names the same lock. False when no page can be made.
    bool Attach(const char* path);
    void Detach();
    bool Attached() const { return word_ != nullptr; }

    // Waits up to timeoutMs; a holder whose process has ended loses the lock.
    // False on timeout (the caller then goes without).
    bool Acquire(DWORD timeoutMs = 10000);
    void Release();

private:
    unsigned long long key_ = 0;
    HANDLE mapping_ = nullptr;
    volatile LONG* word_ = nullptr;  // 0 when free, else the holder's process id
};

// RAII holder of an acquired lock.
class CrossProcessHold {
public:
    explicit CrossProcessHold(CrossProcessLock& lock) : lock_(lock), held_(lock.Acquire()) {}
    ~CrossProcessHold() {
        if (held_) lock_.Release();
    }
    CrossProcessHold(const CrossProcessHold&) = delete;
    CrossProcessHold& operator=(const CrossProcessHold&) = delete;
    bool held() const { return held_; }

private:
    CrossProcessLock& lock_;
    bool held_;
};

}  // namespace kv
