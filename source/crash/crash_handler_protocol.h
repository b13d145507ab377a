// What a client process and the crash handler (kvdiag crash-handler) exchange:
// one registration over the pipe of its account and session (pipe_account.h),
// then, at a crash, only the crash block in the client's own memory (read and
// written by the handler with ReadProcessMemory / WriteProcessMemory) and
// three events.
#pragma once

#include <windows.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "crash/hang_watch_block.h"

namespace kv {

constexpr DWORD kCrashHandlerProtocol = 3;

// Lives in the client. The first crashing thread claims it; the handler
// writes the outcome back before it signals "done".
struct CrashBlock {
    volatile LONG crashingThread;  // 0 until a thread crashes
    volatile LONG waitingThread;   // a second thread that crashed during the dump
    uint64_t exceptionPointers;    // EXCEPTION_POINTERS* in the client
    volatile LONG result;          // HRESULT of the dump
    volatile LONG hang;            // the dump failed and [Debug]HangProcessIfDumpFailed is set
    // The component name as it stands now, so the crash's files carry the
    // name the process has at the crash, not the one it had at registration.
    // Odd while being changed: the handler then keeps the registered name.
    volatile LONG nameVersion;
    char componentName[MAX_PATH];
    HangWatch hangWatch;  // threads that promised a heartbeat (DbgHlpWatchForHang)
};

// The block's component name, read by the handler from a copy whose
// nameVersion was read before it and versionAfter after it: the name counts
// when both are the same even number; else fallback.
inline const char* ComponentNameOf(const CrashBlock& copy, LONG versionAfter, const char* fallback) {
    const bool whole = copy.nameVersion % 2 == 0 && copy.nameVersion == versionAfter &&
                       memchr(copy.componentName, 0, sizeof copy.componentName);
    return whole ? copy.componentName : fallback;
}

// Client to handler. Handle values are the client's: the handler duplicates
// them out of the process on the other end of the pipe, which must be
// processId, and serves them only when they are events.
struct CrashRegistration {
    DWORD protocol;
    DWORD processId;
    uint64_t requestEvent;  // set by the client at a crash
    uint64_t startedEvent;  // set by the handler when it takes the request
    uint64_t doneEvent;     // set by the handler when the dump is written
    uint64_t block;         // address of the client's CrashBlock
    char iniPath[MAX_PATH];
    char componentName[MAX_PATH];
    uint64_t watchEvent;    // set by the client when its hang watch changes
};

// Handler to client.
struct CrashRegistrationReply {
    DWORD protocol;
    DWORD handlerProcessId;  // 0: refused
    char refusal[256];       // why, when refused
};

// The handler's answer in the crash block's result when it refuses to write
// a dump (the client's INI file or log folder no longer passes its checks):
// the crashed process then writes the dump itself.
constexpr LONG kCrashRefusedByHandler = static_cast<LONG>(0xA0047E01);

}  // namespace kv
