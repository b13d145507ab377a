// Child-host scenarios for reading dumps away from the plant: crashes at
// three sites, each dumped the way Windows writes a light dump (modules,
// threads and their stacks, no heap), and hosts whose threads deadlock on
// critical sections in a ring (also kvdiag dump's deadlocked host).
#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "scenario.h"

static const char* dumpPath;

static LONG WINAPI NormalDumpFilter(EXCEPTION_POINTERS* pointers) {
    const HANDLE file = CreateFileA(dumpPath, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    MINIDUMP_EXCEPTION_INFORMATION info = {GetCurrentThreadId(), pointers, FALSE};
    const BOOL written = MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal, &info,
                                           nullptr, nullptr);
    CloseHandle(file);
    printf("dump %s\n", written ? "written" : "failed");
    fflush(stdout);
    TerminateProcess(GetCurrentProcess(), pointers->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

static volatile int zero = 0;
__attribute__((noinline)) static void WriteThroughNull() { *reinterpret_cast<volatile int*>(uintptr_t(zero) + 8) = 1; }
__attribute__((noinline)) static void ReadThroughNull() {
    zero = *reinterpret_cast<volatile int*>(uintptr_t(zero) + 16);
}
__attribute__((noinline)) static void DivideByZero() { zero = 100 / zero; }
__attribute__((noinline)) static void ParseRecipe() { WriteThroughNull(); zero = 1; }
__attribute__((noinline)) static void ScheduleBatch() { ReadThroughNull(); zero = 2; }
__attribute__((noinline)) static void ScaleTag() { DivideByZero(); zero = 3; }

// triage_crash SITE DUMPFILE: crashes at site parse, schedule or scale.
KV_SCENARIO(triage_crash) {
    if (argc < 2) return 2;
    dumpPath = argv[1];
    SetUnhandledExceptionFilter(NormalDumpFilter);
    const std::string site = argv[0];
    if (site == "parse") ParseRecipe();
    else if (site == "schedule") ScheduleBatch();
    else if (site == "scale") ScaleTag();
    return 2;
}

static CRITICAL_SECTION ring[3];
static int ringSize;
static volatile LONG holding;

__attribute__((noinline)) static void TakeNextLock(int i) {
    EnterCriticalSection(&ring[(i + 1) % ringSize]);
    zero = i;  // no tail call: the frame stays on the stack
}

// Holds its own lock, waits until every thread holds one, then wants the next.
__attribute__((noinline)) static DWORD WINAPI RingThread(void* index) {
    const int i = int(reinterpret_cast<intptr_t>(index));
    EnterCriticalSection(&ring[i]);
    InterlockedIncrement(&holding);
    while (holding < ringSize) Sleep(10);
    TakeNextLock(i);
    return 0;
}

// deadlock_ring N: N threads (2 or 3) deadlock on N locks; prints each
// thread's id and the lock it holds, in ring order.
KV_SCENARIO(deadlock_ring) {
    ringSize = argc > 0 ? atoi(argv[0]) : 2;
    if (ringSize < 2 || ringSize > 3) return 2;
    for (int i = 0; i < ringSize; ++i) InitializeCriticalSection(&ring[i]);
    for (int i = 0; i < ringSize; ++i) {
        DWORD id = 0;
        CreateThread(nullptr, 0, RingThread, reinterpret_cast<void*>(intptr_t(i)), 0, &id);
        printf("thread %lu holds 0x%016llx\n", id,
               static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(&ring[i])));
    }
    while (holding < ringSize) Sleep(10);
    Sleep(500);  // each thread is inside EnterCriticalSection by now
    printf("deadlocked pid=%lu\n", GetCurrentProcessId());
    fflush(stdout);
    Sleep(INFINITE);
    return 0;
}
