// Process-wide state of the library frame: the settings read once at attach,
// the identity strings, the debug mode and the locks every subsystem shares.
#pragma once

#include <windows.h>
#include <stdint.h>

namespace kv {

// Everything declared here is defined inside this DLL. Hidden visibility lets
// clang reach these globals directly instead of through a pointer it would
// otherwise load first, in case they were data imported from another DLL.
#pragma GCC visibility push(hidden)

struct DebugHelpSettings {
    BOOL crashOnError = FALSE;
    BOOL forceVirtualAlign = FALSE;
    bool allocFromPage = false;
    bool logMemSafeCopy = true;
    bool truncateMemSafeCopy = false;
    uint32_t padding = 0;
    uint32_t heapCheckRate = 0;
    uint32_t stackTraceSize = 0;
    uint32_t memoryBufferSize = 0;
    uint32_t heapCheckInterval = 0;
    bool logErrors = true;
    uint32_t debugLogSize = 4096;
    int16_t debugLogHistoryFiles = 1;
    uint32_t mode16LowLimit = 0;
    uint32_t mode16HighLimit = 0;
    uint32_t mode16StackDepth = 0;
    uint32_t pageSize = 0;
};

extern DebugHelpSettings Settings;
// Stored in 32 bits, set and reported as 16. Any thread may set it at any time.
extern volatile uint32_t DebugMode;
extern HMODULE ModuleHandle;
extern char ExeName[256];
extern char IdString[100];
extern char CommandLine[8192];
extern int16_t AttachCount;

// Created at attach, deleted at detach. Order where two are held: MemoryLock
// before DebugLogLock.
extern CRITICAL_SECTION MemoryLock;
extern CRITICAL_SECTION DebugLogLock;
extern CRITICAL_SECTION CallStackLock;
extern CRITICAL_SECTION DriverLock;

// True from the creation of MemoryLock and DebugLogLock at attach until just
// before detach deletes them: code that may run outside that window (another
// module's detach, an atexit handler) checks it before taking either lock.
extern volatile bool LocksReady;

// True once the process is ending: ExitProcess has ended every other thread,
// wherever it was, so no wait may depend on one. Told by the loader while the
// modules that detach before this one run, and marked by this one's detach.
bool ProcessEnding();
void MarkProcessEnding();
// Looks up the loader's shutdown flag; called at attach.
void WatchProcessEnd();

// Executes a breakpoint trap when "CrashOnError" is on.
void ApplyCrashOnError();

#pragma GCC visibility pop

}  // namespace kv
