// The lock that serialises the line writes of all processes of one session to
// one log file: a word in a named shared page, taken with an interlocked
// exchange, so taking it free costs no call into the system. A waiter spins
// briefly, then sleeps on a named event that the releaser sets only when
// someone waits (never a timed poll). The page is named after the file's
// identity, not its path, so two paths to one file share one lock and a file
// that was rolled keeps its own.
//
// Why a session-wide lock is enough on Windows: the log is opened for
// append-only access, and the system makes each such write one atomic append
// at the end of the file, whatever session or account the writer runs in; the
// lock only keeps processes that do not get that guarantee (Wine places an
// append by a size check followed by a positioned write) from overlapping, and
// Wine has one namespace for all its processes. The history chain, which needs
// exclusion across sessions, is guarded by a byte-range lock on the file
// itself (see roll_claim.h).
#pragma once

#include <windows.h>

namespace kv {

class CrossProcessLock {
public:
    CrossProcessLock() = default;
    ~CrossProcessLock() { Detach(); }
    CrossProcessLock(const CrossProcessLock&) = delete;
    CrossProcessLock& operator=(const CrossProcessLock&) = delete;

    // Attaches to the lock of an open file; keeps the current page when the
    // file is the same. False when no page can be made.
    bool Attach(HANDLE file);
    void Detach();
    bool Attached() const { return shared_ != nullptr; }

    // Waits up to timeoutMs; a holder whose process has ended loses the lock
    // within a quarter of a second. After a timeout the next calls only try
    // once (a stuck holder must not stall every line for the full wait) until
    // one succeeds again. False when not acquired.
    bool Acquire(DWORD timeoutMs);
    void Release();

private:
    // The holder is named by its process id and its process's start time: a
    // new process that is given a dead holder's id is not taken for it.
    struct Shared {
        volatile LONG64 owner;  // 0 when free, else the holder's id and start time
        volatile LONG waiters;  // processes asleep on the event
    };
    bool TakeFree();
    bool TakeFromEndedOwner();

    unsigned long long key_ = 0;
    HANDLE mapping_ = nullptr;
    HANDLE wake_ = nullptr;
    Shared* shared_ = nullptr;
    bool stuck_ = false;
};

}  // namespace kv
