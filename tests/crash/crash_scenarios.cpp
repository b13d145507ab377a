// Child-host scenarios of crash diagnostics; each takes the product INI file's
// path first and validates it.
#include <stdio.h>

#include "KvDebugHelp.h"
#include "scenario.h"

static DWORD WINAPI ReadIniPathForever(void* running) {
    char path[MAX_PATH];
    SetEvent(running);  // past its start, where it held the loader lock
    for (;;) GetKorvanIniFilePath(path, sizeof path);  // takes IniFileLock
}

static DWORD WINAPI TakeIniFileLock(void*) {
    TolerateMissingIniFile();  // takes IniFileLock (and changes nothing here)
    return 0;
}

// Suspends holder at a moment it holds IniFileLock: a probe thread that needs
// the lock then cannot finish. The probe stays blocked for good.
static void SuspendWhileHoldingIniFileLock(HANDLE holder) {
    for (;;) {
        SuspendThread(holder);
        HANDLE probe = CreateThread(nullptr, 0, TakeIniFileLock, nullptr, 0, nullptr);
        // A probe that is merely slow to be scheduled on a busy machine gets a second, long wait.
        const bool blocked = WaitForSingleObject(probe, 500) == WAIT_TIMEOUT &&
                             WaitForSingleObject(probe, 10000) == WAIT_TIMEOUT;
        CloseHandle(probe);
        if (blocked) return;
        ResumeThread(holder);
    }
}

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

// INI_PATH: crashes while another thread holds IniFileLock; the filter must
// neither wait for it nor give up the dump.
KV_INI_SCENARIO(crash_ini_locked) {
    char logFolder[MAX_PATH];
    if (GetDebugLogDirPath(1, logFolder, sizeof logFolder) <= 0) return 4;  // now known to the library
    SetUnhandledExceptionFilter(DumpingFilter);
    printf("thread=%lu\n", GetCurrentThreadId());
    // Suspended only once it runs: suspended in its start, it would hold the
    // loader lock, and the dump (which needs that lock) would never end.
    const HANDLE running = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const HANDLE holder = CreateThread(nullptr, 0, ReadIniPathForever, running, 0, nullptr);
    WaitForSingleObject(running, INFINITE);
    SuspendWhileHoldingIniFileLock(holder);
    int* volatile target = reinterpret_cast<int*>(0x10);
    *target = 1;
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
