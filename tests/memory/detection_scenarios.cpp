// Child-host scenarios of the memory error reports. Each takes the product
// INI file as its first argument, so the reports reach <install>\Logs\debug.log.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "KvConfig.h"
#include "KvDebugHelp.h"
#include "scenario.h"

namespace {

bool UseProductIni(int argc, char** argv) {
    if (argc < 1) return false;
    SetKorvanIniFilePath(argv[0]);
    return ValidateKorvanIniFile() == 1;
}

// Three neighbours; the middle one is damaged at offset and then found by the
// full check and again at its free.
int DamageMiddleElement(int argc, char** argv, int offset, int length) {
    if (!UseProductIni(argc, argv)) return 90;
    DbgHlpSetDebugMode(1);
    DbgHlpSetIdStr("detect");
    char* before = static_cast<char*>(osMemAlloc(8, 0));
    char* middle = static_cast<char*>(osMemAlloc(16, 0));
    char* after = static_cast<char*>(osMemAlloc(24, 0));
    memset(middle + offset, 'X', size_t(length));
    DbgLogWrite("full check\n");
    dbgMemCheckAllMemory(0);
    DbgLogWrite("now freeing\n");
    osMemFree(middle);
    osMemFree(after);
    osMemFree(before);
    return 0;
}

}  // namespace

KV_SCENARIO(mem_overrun_one_byte) { return DamageMiddleElement(argc, argv, 16, 1); }
KV_SCENARIO(mem_overrun_sixteen_bytes) { return DamageMiddleElement(argc, argv, 16, 16); }
KV_SCENARIO(mem_underrun_one_byte) { return DamageMiddleElement(argc, argv, -1, 1); }

// Debug mode 8 keeps freed elements: the second free is reported once.
KV_SCENARIO(mem_double_free_kept) {
    if (!UseProductIni(argc, argv)) return 90;
    DbgHlpSetDebugMode(8);
    char* p = static_cast<char*>(osMemAlloc(12, 0));
    osMemFree(p);
    osMemFree(p);
    return 0;
}

KV_SCENARIO(mem_bad_pointer_stack) {
    if (!UseProductIni(argc, argv)) return 90;
    DbgHlpSetDebugMode(1);
    char local[200];
    memset(local, 'L', sizeof local);
    osMemFree(local + 100);
    return 0;
}

KV_SCENARIO(mem_bad_pointer_middle) {
    if (!UseProductIni(argc, argv)) return 90;
    DbgHlpSetDebugMode(1);
    char* p = static_cast<char*>(osMemAlloc(200, OSMEM_ZERO));
    osMemFree(p + 100);
    osMemFree(p);
    return 0;
}

// Light mode. A freed block is recognised by its magic 0xADADFEEE; the block
// is built here because Wine's HeapFree overwrites the first bytes of a freed
// block (Windows does not), so a real second free would read a different
// magic on Wine. The crafted block holds on both.
KV_SCENARIO(mem_light_double_free) {
    if (!UseProductIni(argc, argv)) return 90;
    unsigned char block[40];
    const uint32_t head[2] = {16, 0xADADFEEEu};
    memcpy(block, head, 8);
    memset(block + 8, 'd', 32);
    printf("pointer %p\n", static_cast<void*>(block + 8));
    osMemFree(block + 8);
    return 0;
}

KV_SCENARIO(mem_light_foreign_pointer) {
    if (!UseProductIni(argc, argv)) return 90;
    char* p = static_cast<char*>(osMemAlloc(64, OSMEM_ZERO));
    printf("pointer %p\n", static_cast<void*>(p + 32));
    osMemFree(p + 32);
    osMemFree(p);
    return 0;
}

// Debug mode 2: one element leaks, one exempt element is left on purpose.
KV_SCENARIO(mem_leak_at_unload) {
    if (!UseProductIni(argc, argv)) return 90;
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

KV_SCENARIO(mem_report_instrumented) {
    if (!UseProductIni(argc, argv)) return 90;
    ReportInstrumentedAllocations(argc > 1 ? atoi(argv[1]) : 0);
    return 0;
}

namespace {

__attribute__((noinline)) void HostFunctionForStack() {
    LogInstrumentedAndKvcodeCallStacks(nullptr, 0); printf("site %d\n", __LINE__);
    fflush(stdout);
}

}  // namespace

// A symbolic stack of this host: function names and source lines.
KV_SCENARIO(mem_symbolic_stack) {
    if (!UseProductIni(argc, argv)) return 90;
    LogInstrumentedAndKvcodeCallStacks(nullptr, 0);  // logging off: nothing written
    EnableCallStackAndAllocationInstrumentation(1, 0, const_cast<char*>(""), 0);
    HostFunctionForStack();
    return 0;
}

namespace {

__attribute__((noinline)) void WatchedAllocations() {
    char spec[64];
    snprintf(spec, sizeof spec, "detection_scenarios.cpp:%d:2", __LINE__ + 2);
    printf("watcher %d\n", SetAllocationWatcher(spec));
    for (int i = 0; i < 3; ++i) osMemFree(osMemAlloc(16, 0));
}

}  // namespace

// The allocation watcher logs the stack of the first two allocations at the
// watched line only.
KV_SCENARIO(mem_allocation_watcher) {
    if (!UseProductIni(argc, argv)) return 90;
    EnableCallStackAndAllocationInstrumentation(1, 2, const_cast<char*>(""), 0);
    WatchedAllocations();
    return 0;
}
