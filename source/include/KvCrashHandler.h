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
// The first stack overflow of a registered process is handed to the handler
// from a vectored exception handler, before any handler of the host runs (an
// overflowed stack may have no room left for the filter); the filter's
// GenerateMiniDump then finds it dumped. A host that catches its own stack
// overflow therefore still gets that dump and runs on, but its crash block is
// spent: its later crashes are dumped in-process, after a system-log line that
// says so. Registering pins KvDebugHelp.dll in the process.
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
    char dumpPath[MAX_PATH];    // in: the file, or "" to name it as a crash or hang dump; out: the file written
    int hang;                   // out: the dump failed and [Debug]HangProcessIfDumpFailed is set
    const char* hangNote;       // a hang: the system-log line's "## HANG ## - " text; null: none
} KvProcessDump;

// Writes the dump; with exception pointers it also writes the system-log
// lines a crash dump writes (to the system log of that process's component),
// with hangNote one line "## HANG ## - NOTE; hang dump "PATH"" (or why none).
// A dump without exception pointers and without a path is a hang dump:
// "<component or program>.<pid>.<yyyymmdd-hhmmss>.hang.dmp" in the log folder,
// never replacing a file. Light dumps list every module and thread with its
// context and stack, so that their stacks can be walked wherever they are read.
// The HRESULT of GenerateMiniDump's write (0 success; 1 when MiniDumpType is 0
// and nothing was written).
KVDH_C_API long DbgHlpWriteProcessDump(KvProcessDump* request);
