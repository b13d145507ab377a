// Child-host scenarios of crash diagnostics; each takes the product INI file's
// path first and validates it.
#include <stdio.h>

#include "KvDebugHelp.h"
#include "scenario.h"

namespace {

LONG WINAPI DumpingFilter(EXCEPTION_POINTERS* pointers) {
    GenerateMiniDump(pointers);
    printf("filter: dump returned\n");
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

// INI_PATH [nullptrs]: crashes with an access violation at address 0x10 and
// the filter dumps; with "nullptrs" calls GenerateMiniDump(nullptr) instead.
KV_INI_SCENARIO(crash_access_violation) {
    SetUnhandledExceptionFilter(DumpingFilter);
    printf("thread=%lu\n", GetCurrentThreadId());
    int* volatile target = reinterpret_cast<int*>(0x10);
    if (argc >= 2) GenerateMiniDump(nullptr);
    else *target = 1;
    return 0;
}

// INI_PATH: a chain of two KvExceptions, then the dummy exception.
KV_INI_SCENARIO(crash_exception_chain) {
    {
        KvException first(0x80070002, "file missing", nullptr, "loader.cpp", 41);
        KvException second(0x80004005, "load failed", &first, "starter.cpp", 7);
    }
    KvExceptionCreateDummyException(0);
    printf("live=%ld\n", KvExceptionGetLiveCount());
    return 0;
}
