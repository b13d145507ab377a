// Placeholder until the memory manager lands.
#include "KvMemory.h"
#include "memory/memory_lifecycle.h"

extern "C" void DbgHlpDumpStack(void) {}

namespace kv {
void InitializeMemoryManager() {}
void StartAllocationRateClock() {}
void RunDetachMemoryChecks() {}
}  // namespace kv
