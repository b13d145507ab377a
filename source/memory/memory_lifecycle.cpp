// The memory manager's state and its part of attach and detach.
#include "KvLogging.h"
#include "crash/callstack_state.h"
#include "memory/heap_report.h"
#include "memory/memory_lifecycle.h"
#include "memory/winmem_state.h"

namespace kv {

MemoryLayout Layout;
DbgMemElement HeadSentinel;
DbgMemElement TailSentinel;
DbgMemStatistics Stats;
uint64_t AllocationTotal = 0;
uint64_t AllocationsOutstanding = 0;
PageGuardWindow GuardWindow;
uint32_t PeriodicCheckCounter = 0;

void InitializeMemoryManager() {
    Layout.heap = GetProcessHeap();
    ULONG lowFragmentation = 2;
    HeapSetInformation(Layout.heap, HeapCompatibilityInformation, &lowFragmentation, sizeof lowFragmentation);
    Stats = DbgMemStatistics{};
    AllocationTotal = 0;
    AllocationsOutstanding = 0;
    HeadSentinel = DbgMemElement{kHeadMagic, nullptr, &TailSentinel, 0, 1};
    TailSentinel = DbgMemElement{kTailMagic, &HeadSentinel, nullptr, 0, 1};
    Layout.stackWords = Settings.stackTraceSize;
    Layout.guardBytes = Settings.memoryBufferSize;
    Layout.headerBytes = kFixedHeaderBytes + 4 * Settings.stackTraceSize;
    Layout.userOffset = Layout.headerBytes + Settings.memoryBufferSize;
    Layout.overhead = Layout.headerBytes + 2 * Settings.memoryBufferSize;
    Layout.pageSize = Settings.pageSize ? Settings.pageSize : 4096;
    GuardWindow = PageGuardWindow{Settings.mode16LowLimit, Settings.mode16HighLimit, Settings.mode16StackDepth};
}

void StartAllocationRateClock() { StartRateClock(); }

void RunDetachMemoryChecks() {
    if (DebugMode != 0 && (DebugMode & 0x02)) dbgMemCheckAllMemory(1);
    if (Instrumentation.reportAtUnload) WriteMemoryReport(0, 0xFFFFFFFFu, false);
}

}  // namespace kv
