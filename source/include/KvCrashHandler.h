// KvCrashHandler.h - dumps written from outside the crashed process by the
// crash handler (kvdiag crash-handler), and dumps of running processes.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "KvExport.h"

// Registers this process with the crash handler of its logon session,
// starting the handler when none runs (handlerPath: the program; null means
// kvdiag.exe beside KvDebugHelp.dll). Call it once at start-up, after the
// product INI file was validated and the component name set. From then on
// GenerateMiniDump hands the crash to the handler and waits; without an answer
// it writes the dump itself as before. Returns 1, or 0 with the reason in the
// debug log.
KVDH_C_API int DbgHlpStartCrashHandler(const char* handlerPath);

// One dump of another (or this) process, written from the calling process.
typedef struct KvProcessDump {
    HANDLE process;             // PROCESS_QUERY_INFORMATION | PROCESS_VM_READ at least
    DWORD threadId;             // the crashing thread; 0 when there is none
    uint64_t exceptionPointers; // EXCEPTION_POINTERS* in that process; 0: no exception
    const char* iniPath;        // its product INI file (MiniDumpType, log folder); null: defaults
    const char* componentName;  // its component name (part of the dump's name); null: none
    int mode;                   // -1: [Debug]MiniDumpType as a crash reads it; 1 light; 3 heavy
    int keepExisting;           // 1: never replace a file, take the next numbered name
    uint64_t waitingThread;     // address in that process of a thread id that a second crashing
                                // thread sets while it waits; read after the dump; 0: none
    char dumpPath[MAX_PATH];    // in: the file, or "" to name it as a crash dump; out: the file written
    int hang;                   // out: the dump failed and [Debug]HangProcessIfDumpFailed is set
} KvProcessDump;

// Writes the dump; with exception pointers it also writes the system-log
// lines a crash dump writes (to the system log of that process's component).
// The HRESULT of GenerateMiniDump's write (0 success; 1 when MiniDumpType is 0
// and nothing was written).
KVDH_C_API long DbgHlpWriteProcessDump(KvProcessDump* request);
