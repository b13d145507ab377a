// Child-host scenarios of the crash handler: a host registers, then crashes
// one of the hard ways; a host that only registers, a victim of forged
// registrations and a pipe squatter. (kvdiag dump's deadlocked host is
// deadlock_ring in dump_scenarios.cpp.)
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "KvDebugHelp.h"
#include "crash/crash_handler_protocol.h"
#include "crash/pipe_account.h"
#include "scenario.h"

static volatile int sink;

// The dumps must name these functions.
__attribute__((noinline)) static void CrashOnPurpose() { *reinterpret_cast<volatile int*>(0x10) = 1; }

__attribute__((noinline)) static void OverflowTheStack(int depth) {
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    if (depth >= 0) OverflowTheStack(depth + 1);
    sink = frame[0];
}

// Says so and ends the process with the exception code. Nothing here touches
// the heap, which another thread may hold.
static LONG WINAPI HandOverFilter(EXCEPTION_POINTERS* pointers) {
    GenerateMiniDump(pointers);
    static const char said[] = "filter: dump returned\n";
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), said, sizeof said - 1, &written, nullptr);
    TerminateProcess(GetCurrentProcess(), pointers->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

// A host's own handler that takes a stack overflow and goes on.
static LONG WINAPI CatchStackOverflow(EXCEPTION_POINTERS* pointers) {
    return pointers->ExceptionRecord->ExceptionCode == STATUS_STACK_OVERFLOW ? EXCEPTION_CONTINUE_EXECUTION
                                                                              : EXCEPTION_CONTINUE_SEARCH;
}

static DWORD WINAPI HoldHeapLock(void* ready) {
    HeapLock(GetProcessHeap());
    SetEvent(ready);
    Sleep(INFINITE);
    return 0;
}

static DWORD WINAPI CrashWhenSet(void* go) {
    WaitForSingleObject(go, INFINITE);
    CrashOnPurpose();
    return 0;
}

// The handler this process registered with, as its debug log names it.
static bool KillHandler() {
    char log[MAX_PATH];
    if (GetDebugLogFilePath(-1, 1, log, sizeof log) <= 0) return false;
    FILE* file = fopen(log, "rb");
    if (!file) return false;
    char text[8192] = "";
    text[fread(text, 1, sizeof text - 1, file)] = 0;
    fclose(file);
    const char* at = strstr(text, "Crash handler: process ");
    HANDLE handler = at ? OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, strtoul(at + 23, nullptr, 10)) : nullptr;
    if (!handler) return false;
    TerminateProcess(handler, 9);
    const bool gone = WaitForSingleObject(handler, 30000) == WAIT_OBJECT_0;
    CloseHandle(handler);
    return gone;
}

// INI_PATH KIND [kill-handler|together|renamed|overflow-caught]: registers
// with the crash handler, then crashes: access_violation, stack_overflow
// (64 KB stack guarantee), heap_locked (another thread holds the process
// heap's lock), heap_damaged, two_threads. kill-handler first ends the
// handler; together first waits for the test's event
// "Local\kvtest.crash.together"; renamed takes the component name "Renamed"
// after registering; overflow-caught first raises a stack overflow that a
// handler of its own takes. Prints the address of the function that crashes.
KV_INI_SCENARIO(handler_crash) {
    if (argc < 2) return 2;
    const std::string kind = argv[1], option = argc >= 3 ? argv[2] : "";
    if (DbgHlpStartCrashHandler(nullptr) != 1) return 5;
    if (option == "kill-handler" && !KillHandler()) return 6;
    if (option == "renamed") SetComponentName("Renamed");
    if (option == "overflow-caught") {
        AddVectoredExceptionHandler(0, CatchStackOverflow);
        RaiseException(STATUS_STACK_OVERFLOW, 0, 0, nullptr);
    }
    SetUnhandledExceptionFilter(HandOverFilter);
    printf("registered thread=%lu function=%p\n", GetCurrentThreadId(),
           kind == "stack_overflow" ? reinterpret_cast<void*>(&OverflowTheStack) : reinterpret_cast<void*>(&CrashOnPurpose));
    if (option == "together") {
        HANDLE go = OpenEventA(SYNCHRONIZE, FALSE, "Local\\kvtest.crash.together");
        if (!go || WaitForSingleObject(go, 60000) != WAIT_OBJECT_0) return 7;
    }
    if (kind == "stack_overflow") {
        ULONG guarantee = 64 * 1024;
        SetThreadStackGuarantee(&guarantee);
        OverflowTheStack(0);
    } else if (kind == "heap_locked") {
        HANDLE ready = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        CreateThread(nullptr, 0, HoldHeapLock, ready, 0, nullptr);
        WaitForSingleObject(ready, INFINITE);
    } else if (kind == "heap_damaged") {
        char* block = static_cast<char*>(HeapAlloc(GetProcessHeap(), 0, 64));
        memset(block - 16, 0xFE, 128);  // its header, its data and the next block's header
    } else if (kind == "two_threads") {
        HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        CreateThread(nullptr, 0, CrashWhenSet, go, 0, nullptr);
        CreateThread(nullptr, 0, CrashWhenSet, go, 0, nullptr);
        Sleep(200);
        SetEvent(go);
        Sleep(INFINITE);
    } else if (kind != "access_violation") {
        return 2;
    }
    CrashOnPurpose();
    return 0;
}

// Registers with the crash handler: exit 0 when registered, 5 when not.
KV_INI_SCENARIO(handler_register) { return DbgHlpStartCrashHandler(nullptr) == 1 ? 0 : 5; }

// A process that never registers: a named event and a block of known bytes
// that a forged registration names. When "Local\kvtest.victim.check" is set
// (or after 60 s), says whether the block is still as it was.
KV_SCENARIO(handler_victim) {
    static char block[sizeof(kv::CrashBlock)];
    memset(block, 0x5A, sizeof block);
    HANDLE request = CreateEventA(nullptr, FALSE, FALSE, "Local\\kvtest.victim.request");
    HANDLE check = CreateEventA(nullptr, TRUE, FALSE, "Local\\kvtest.victim.check");
    printf("victim pid=%lu event=%llx block=%llx ready\n", GetCurrentProcessId(), uint64_t(request), uint64_t(block));
    WaitForSingleObject(check, 60000);
    const bool intact = std::count(block, block + sizeof block, 0x5A) == sizeof block;
    printf(intact ? "block intact\n" : "block changed\n");
    return intact ? 0 : 3;
}

// Creates the crash handler's pipe name before any handler, with the default
// access list, and tells what each client that connects grants it:
// "client N: impersonation level L, received N bytes" (L a SECURITY_IMPERSONATION_LEVEL,
// -1 when impersonation failed).
KV_SCENARIO(pipe_squatter) {
    char name[kv::kPipeNameRoom];
    if (!kv::CrashHandlerPipeName(name)) return 2;
    HANDLE pipe = CreateNamedPipeA(name, PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE, PIPE_TYPE_BYTE | PIPE_WAIT,
                                   1, 4096, 4096, 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) return 3;
    printf("squatting\n");
    for (int client = 1;; ++client) {  // until the test ends it
        if (!ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) return 4;
        int level = -1;
        HANDLE token = nullptr;
        DWORD size = 0;
        if (ImpersonateNamedPipeClient(pipe) && OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token))
            GetTokenInformation(token, TokenImpersonationLevel, &level, sizeof level, &size), CloseHandle(token);
        RevertToSelf();
        // Whatever the client sends before it gives up (it closes its end: the read ends).
        static char received[sizeof(kv::CrashRegistration)];
        DWORD total = 0, got = 0;
        while (total < sizeof received && ReadFile(pipe, received + total, sizeof received - total, &got, nullptr) && got)
            total += got;
        printf("client %d: impersonation level %d, received %lu bytes\n", client, level, total);
        DisconnectNamedPipe(pipe);
    }
}
