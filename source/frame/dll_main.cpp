// The library entry point: the attach and detach sequences.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <windows.h>

#include "crash/callstack_lifecycle.h"
#include "frame/process_state.h"
#include "frame/settings_reader.h"
#include "memory/memory_lifecycle.h"

namespace kv {
namespace {

void ReadProcessSettings() {
    char path[260] = "";
    GetModuleFileNameA(nullptr, path, sizeof path);
    char name[_MAX_FNAME] = "";
    _splitpath(path, nullptr, nullptr, name, nullptr);
    snprintf(ExeName, sizeof ExeName, "%s", name);
    ReadSettingsFor(ExeName, DebugMode, Settings, nullptr);
}

void Attach(HMODULE module) {
    ModuleHandle = module;
    WatchProcessEnd();
    ReadProcessSettings();
    InitializeCriticalSection(&MemoryLock);
    InitializeCriticalSection(&DebugLogLock);
    LocksReady = true;
    EnterCriticalSection(&MemoryLock);
    InitializeMemoryManager();
    LeaveCriticalSection(&MemoryLock);
    StartCallStackSystem();
    StartAllocationRateClock();
    if (AttachCount++ == 0) InitializeCriticalSection(&DriverLock);
}

void Detach(bool processEnding) {
    if (processEnding) MarkProcessEnding();
    EnterCriticalSection(&MemoryLock);
    RunDetachMemoryChecks();
    LocksReady = false;
    LeaveCriticalSection(&MemoryLock);
    DeleteCriticalSection(&DebugLogLock);
    DeleteCriticalSection(&MemoryLock);
    StopCallStackSystem();
    if (AttachCount-- == 1) DeleteCriticalSection(&DriverLock);
}

}  // namespace
}  // namespace kv

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved) {
    switch (reason) {
        case DLL_PROCESS_ATTACH: kv::Attach(module); break;
        // A non-null reserved argument: the process is ending, not unloading the DLL.
        case DLL_PROCESS_DETACH: kv::Detach(reserved != nullptr); break;
        default: break;
    }
    return TRUE;
}
