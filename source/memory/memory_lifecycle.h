// The memory manager's part of the library's attach and detach sequences.
#pragma once

namespace kv {

// Attach: with MemoryLock held, take the process heap (low-fragmentation mode),
// clear the counters, link the list sentinels and derive the header sizes.
void InitializeMemoryManager();

// Attach, last memory step: the time base of the allocation-rate line.
void StartAllocationRateClock();

// Detach, with MemoryLock held: the leak check of debug mode 0x02 and, when
// instrumentation asked for it, the memory report.
void RunDetachMemoryChecks();

}  // namespace kv
