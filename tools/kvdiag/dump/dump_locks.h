// Which critical section each waiting thread of a dump wants and which
// thread owns it, and the cycles among them: a deadlock.
//
// A thread waits for a lock when one of its innermost frames is the system's
// EnterCriticalSection. The lock's address is not kept anywhere fixed: it was
// the first argument, held on in a saved register or a stack slot of the
// wait. So the values of the non-volatile registers the unwind recovered for
// those frames, then the words of the waiting frames' stack, are tried in
// that order, and the first that points at a critical section held by
// another thread of the dump is the lock. The layout read is Windows'
// RTL_CRITICAL_SECTION (Wine's is the same): DebugInfo, LockCount,
// RecursionCount, OwningThread (the owner's thread id), LockSemaphore,
// SpinCount. Needs the lock's memory in the dump (a full-memory dump, or one
// that kept the data it points to).
#pragma once

#include <windows.h>
#include <stdint.h>

#include <vector>

#include "dump/dump_memory.h"
#include "dump/dump_stack.h"

namespace kvdiag {

struct LockWait {
    DWORD waiter = 0;
    uint64_t lock = 0;  // 0 when the lock could not be found
    DWORD owner = 0;
};

struct LockReport {
    std::vector<LockWait> waits;                   // one per thread in EnterCriticalSection
    std::vector<std::vector<LockWait>> deadlocks;  // each cycle once, starting at its lowest thread id
};

LockReport FindLockWaits(const std::vector<ThreadStack>& stacks, const DumpMemory& memory);

}  // namespace kvdiag
