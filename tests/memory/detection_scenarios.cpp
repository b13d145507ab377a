// Child-host scenarios of the memory error reports and the call-stack system.
// Most take the product INI file as their first argument, so the reports
// reach <install>\Logs\debug.log.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "KvDebugHelp.h"
#include "scenario.h"

// OFFSET LENGTH: three neighbours; the middle one is damaged at offset and
// then found by the full check and again at its free.
KV_INI_SCENARIO(mem_damage_middle) {
    DbgHlpSetDebugMode(1);
    DbgHlpSetIdStr("detect");
    char* before = static_cast<char*>(osMemAlloc(8, 0));
    char* middle = static_cast<char*>(osMemAlloc(16, 0));
    char* after = static_cast<char*>(osMemAlloc(24, 0));
    memset(middle + atoi(argv[1]), 'X', size_t(atoi(argv[2])));
    DbgLogWrite("full check\n");
    dbgMemCheckAllMemory(0);
    DbgLogWrite("now freeing\n");
    osMemFree(middle);
    osMemFree(after);
    osMemFree(before);
    return 0;
}

// Debug mode 8 keeps freed elements: the second free is reported once.
KV_INI_SCENARIO(mem_double_free_kept) {
    DbgHlpSetDebugMode(8);
    char* p = static_cast<char*>(osMemAlloc(12, 0));
    osMemFree(p);
    osMemFree(p);
    return 0;
}

// Freeing the middle of a block, in guarded mode (argument "guarded") or light mode.
KV_INI_SCENARIO(mem_free_middle) {
    if (argc > 1 && !strcmp(argv[1], "guarded")) DbgHlpSetDebugMode(1);
    char* p = static_cast<char*>(osMemAlloc(200, OSMEM_ZERO));
    osMemFree(p + 100);
    osMemFree(p);
    return 0;
}

// Light mode: a freed block is recognised by its magic. The block is crafted:
// Wine's HeapFree overwrites a freed block's first bytes (Windows does not).
KV_INI_SCENARIO(mem_light_double_free) {
    unsigned char block[40];
    const uint32_t head[2] = {16, 0xADADFEEEu};
    memcpy(block, head, 8);
    memset(block + 8, 'd', 32);
    osMemFree(block + 8);
    return 0;
}

// Debug mode 2: one element leaks, one exempt element is left on purpose.
KV_INI_SCENARIO(mem_leak_at_unload) {
    DbgHlpSetDebugMode(2);
    osMemAlloc(33, OSMEM_NO_LEAK_REPORT);
    osMemAlloc(77, 0);
    osMemFree(osMemAlloc(5, 0));
    return 0;
}

// The memory report with allocation locations: prints each allocation's line
// as "site N", optionally many more allocations to reach the record cap. The
// sites sit in a function of their own, without an early return: Wine's
// symbol handler drops the line rows that follow one.
__attribute__((noinline)) void ReportInstrumentedAllocations(int extra) {
    EnableCallStackAndAllocationInstrumentation(0, 2, const_cast<char*>(""), 0);
    void* first = osMemAlloc(111, 0); printf("site %d\n", __LINE__);
    void* second = osMemAllocDbg(222, 0, "ignored.cpp", 5); printf("site %d\n", __LINE__);
    for (int i = 0; i < extra; ++i) osMemAlloc(8, 0);
    DbgMemHeapReport(0, 0xFFFFFFFFu, 0);
    osMemFree(second);
    osMemFree(first);
}

KV_INI_SCENARIO(mem_report_instrumented) {
    ReportInstrumentedAllocations(argc > 1 ? atoi(argv[1]) : 0);
    return 0;
}

static __attribute__((noinline)) void WatchedAllocations() {
    char spec[64];
    snprintf(spec, sizeof spec, "detection_scenarios.cpp:%d:2", __LINE__ + 2);
    printf("watcher %d\n", SetAllocationWatcher(spec));
    for (int i = 0; i < 3; ++i) osMemFree(osMemAlloc(16, 0));
}

// The allocation watcher logs the stack of the first two allocations at the
// watched line only.
KV_INI_SCENARIO(mem_allocation_watcher) {
    EnableCallStackAndAllocationInstrumentation(1, 2, const_cast<char*>(""), 0);
    WatchedAllocations();
    return 0;
}

// Location lookup and capture: prints the location the library found for a
// direct lookup with the line it was made on, and the frames of a raw capture.
KV_SCENARIO(mem_location_lookup) {
    printf("before %d\n", IsInstrumentationEnabled());
    EnableCallStackAndAllocationInstrumentation(0, 2, const_cast<char*>(""), 0);
    printf("enabled %d\n", IsInstrumentationEnabled());
    const char* file = nullptr;
    const unsigned line = GetActualAllocationLocation(0, "given.cpp", 7, &file); const int site = __LINE__;
    printf("lookup %s:%u site %d\n", file, line, site);
    void* frames[8] = {};
    printf("frames %u %u\n", unsigned(GetStackFrames(frames, 8, 0)), unsigned(GetStackFrames(nullptr, 8, 0)));
    printf("null %u\n", unsigned(DbgHlpGetStack(nullptr, 8)));
    return frames[0] ? 0 : 1;
}
