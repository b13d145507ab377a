// Child-host scenarios of symbol resolution: what the library names when the
// host, the DLL and their PDBs are installed away from the build tree. Each
// takes the product INI file's path first. The named functions print the line
// the test must find; none is inlined or left through a tail call, and none
// is in a namespace, so that their symbols are their bare names.
#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>

#include "KvDebugHelp.h"
#include "scenario.h"

static __attribute__((noinline)) void LogStackHere() {
    LogInstrumentedAndKvcodeCallStacks(nullptr, 0); printf("stack site %d\n", __LINE__);
}

static __attribute__((noinline)) void* AllocateHere() {
    void* block = osMemAlloc(4321, 0); printf("alloc site %d\n", __LINE__);
    return block;
}

static __attribute__((noinline)) void ThrowHere() {
    try {
        printf("throw site %d\n", __LINE__ + 1);
        throw KvException(0x80004005, "symbols check", nullptr, __FILE__, __LINE__);
    } catch (const KvException&) {
    }
}

// The symbol type and PDB the library's own handler loaded for a module, once
// a lookup has made it load the module's symbols.
static void PrintModuleSymbols(const char* label, const void* inModule) {
    const DWORD64 address = reinterpret_cast<DWORD64>(inModule);
    SymbolAt(address);
    IMAGEHLP_MODULE64 info{};
    info.SizeOfStruct = sizeof info;
    if (SymGetModuleInfo64(GetCurrentProcess(), address, &info))
        printf("%s symtype=%d pdb=%s\n", label, int(info.SymType), info.LoadedPdbName);
    else
        printf("%s no module info (error %lu)\n", label, GetLastError());
}

// Each level prints the line it is written on, which holds its whole body.
#define CRASH_LEVEL(n, call) \
    static __attribute__((noinline)) void CrashLevel##n(int* volatile target) { \
        printf("level" #n " %d\n", __LINE__); call; printf("not reached\n"); }

CRASH_LEVEL(3, *target = 3)
CRASH_LEVEL(2, CrashLevel3(target))
CRASH_LEVEL(1, CrashLevel2(target))

// INI_PATH: a call-stack log, an instrumented allocation in the memory
// report, a KvException's stack, the symbol types of the DLL and the host, and
// the self-check's symbol check.
KV_INI_SCENARIO(symbols_report) {
    EnableCallStackAndAllocationInstrumentation(1, 2, const_cast<char*>(""), 0);
    LogStackHere();
    void* block = AllocateHere();
    DbgMemHeapReport(0, 0xFFFFFFFFu, 0);
    osMemFree(block);
    ThrowHere();
    PrintModuleSymbols("dll", reinterpret_cast<const void*>(&DbgLogWrite));
    PrintModuleSymbols("host", reinterpret_cast<const void*>(&LogStackHere));
    RunKvDebugHelpTests();
    PrintUnitTestSummary();
    return 0;
}

// INI_PATH: an access violation three calls deep, dumped by the filter.
KV_INI_SCENARIO(symbols_crash_three_deep) {
    SetUnhandledExceptionFilter(DumpingFilter);
    CrashLevel1(reinterpret_cast<int*>(0x10));
    return 0;
}
