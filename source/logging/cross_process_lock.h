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
//
// The page also carries what the writers of the session know of the file,
// changed only by the lock's holder: its length, so a line needs no size
// query, and whether it was rolled away, so every writer sees a roll at once.
#pragma once

#include <windows.h>

#include "platform/owned_handle.h"

namespace kv {

// What the writers of one session know of the file whose lock they share.
struct SharedFileState {
    enum : LONG { kNotRolled, kRolling, kRolled };
    volatile LONG64 size;  // the file's length after the last write, while known
    volatile LONG known;   // size holds the length (0 in a new page, or after a holder died)
    // kRolling while a roller moves the file (set before the move), kRolled
    // once it left the live name: its writers then open the live path anew.
    volatile LONG roll;
    // Something outside the session's writers changed the length (another
    // session, an older library, a truncation): each write asks the file.
    volatile LONG foreign;
};

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
    // The file's shared state (null while not attached); changed only while
    // the lock is held.
    SharedFileState* State() const { return shared_ ? &shared_->file : nullptr; }

    // Waits up to timeoutMs; a holder whose process has ended loses the lock
    // within a quarter of a second. After a timeout the next calls only try
    // once (a stuck holder must not stall every line for the full wait) until
    // one succeeds again. False when not acquired. A lock taken from a dead
    // holder leaves the length unknown: the holder may have written part.
    bool Acquire(DWORD timeoutMs);
    void Release();

private:
    // The holder is named by its process id and its process's start time: a
    // new process that is given a dead holder's id is not taken for it.
    struct Shared {
        volatile LONG64 owner;  // 0 when free, else the holder's id and start time
        volatile LONG waiters;  // processes asleep on the event
        SharedFileState file;
    };
    bool TakeFree();
    bool TakeFromEndedOwner();

    unsigned long long key_ = 0;
    platform::KernelHandle mapping_;
    platform::KernelHandle wake_;
    Shared* shared_ = nullptr;
    bool stuck_ = false;
};

}  // namespace kv
