// Child-host scenarios of crash diagnostics: a host whose unhandled-exception
// filter calls GenerateMiniDump, and a host that throws KvExceptions.
#include <windows.h>
#include <stdio.h>

#include "KvDebugHelp.h"
#include "scenario.h"

namespace {

LONG WINAPI DumpingFilter(EXCEPTION_POINTERS* pointers) {
    printf("filter: code=0x%08lx\n", pointers->ExceptionRecord->ExceptionCode);
    GenerateMiniDump(pointers);
    printf("filter: dump returned\n");
    return EXCEPTION_EXECUTE_HANDLER;
}

// Validates the product INI file named by the first argument.
bool UseProductIni(int argc, char** argv) {
    if (argc >= 1) SetKorvanIniFilePath(argv[0]);
    if (argc < 1 || ValidateKorvanIniFile() != 1) {
        printf("product INI not validated\n");
        return false;
    }
    return true;
}

}  // namespace

// INI_PATH: crashes with an access violation at address 0x10; the filter dumps.
KV_SCENARIO(crash_access_violation) {
    if (!UseProductIni(argc, argv)) return 3;
    SetUnhandledExceptionFilter(DumpingFilter);
    printf("thread=%lu\n", GetCurrentThreadId());
    int* volatile target = reinterpret_cast<int*>(0x10);
    *target = 1;
    printf("survived\n");
    return 0;
}

// INI_PATH: calls GenerateMiniDump without exception pointers.
KV_SCENARIO(crash_dump_without_exception) {
    if (!UseProductIni(argc, argv)) return 3;
    GenerateMiniDump(nullptr);
    printf("returned\n");
    return 0;
}

// INI_PATH: a chain of two KvExceptions, then the dummy exception.
KV_SCENARIO(crash_exception_chain) {
    if (!UseProductIni(argc, argv)) return 3;
    {
        KvException first(0x80070002, "file missing", nullptr, "loader.cpp", 41);
        KvException second(0x80004005, "load failed", &first, "starter.cpp", 7);
    }
    KvExceptionCreateDummyException(0);
    printf("live=%ld\n", KvExceptionGetLiveCount());
    return 0;
}
