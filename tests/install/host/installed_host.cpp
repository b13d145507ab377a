// A C++ host as a product developer writes one: logs, leaks one block of each
// kind and ends (leak), or crashes with GenerateMiniDump as its filter (crash).
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include "KvDebugHelp.h"

static LONG WINAPI DumpAndEnd(EXCEPTION_POINTERS* pointers) {
    GenerateMiniDump(pointers);
    TerminateProcess(GetCurrentProcess(), 3);
    return EXCEPTION_EXECUTE_HANDLER;
}

__declspec(noinline) static void* LeakRecipeBuffer() {
    return osMemAllocDbg(64, OSMEM_ZERO, __FILE__, __LINE__);  // light mode: its site is looked up
}

__declspec(noinline) static void CrashInPumpControl(int* volatile target) {
    *target = 7;
}

int main(int argc, char** argv) {
    if (argc != 3 || !SetKorvanIniFilePath(argv[2]) || ValidateKorvanIniFile() != 1) return 2;
    DbgHlpSetCmdLine(GetCommandLineA());
    SetComponentName("InstalledHost");
    DbgLogWrite("installed host started");
    if (!strcmp(argv[1], "crash")) {
        SetUnhandledExceptionFilter(DumpAndEnd);
        CrashInPumpControl(nullptr);
    }
    EnableCallStackAndAllocationInstrumentation(1, 2, const_cast<char*>(""), 1);
    printf("allocated at %p\n", LeakRecipeBuffer());
    DbgHlpSetDebugMode(DBGHLP_MODE_LEAK_CHECK_AT_UNLOAD);
    printf("guarded at %p\n", osMemAlloc(40, OSMEM_ZERO));
    return 0;
}
