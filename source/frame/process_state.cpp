#include "frame/process_state.h"

namespace kv {

DebugHelpSettings Settings;
volatile uint32_t DebugMode = 0;
HMODULE ModuleHandle = nullptr;
char ExeName[256] = "";
char IdString[100] = "";
char CommandLine[8192] = "";
int16_t AttachCount = 0;

CRITICAL_SECTION MemoryLock;
CRITICAL_SECTION DebugLogLock;
CRITICAL_SECTION CallStackLock;
CRITICAL_SECTION DriverLock;
volatile bool LocksReady = false;

namespace {
using ShutdownQuery = BOOLEAN(NTAPI*)();
ShutdownQuery loaderShutdown;
volatile bool ending;
}  // namespace

void WatchProcessEnd() {
    loaderShutdown = reinterpret_cast<ShutdownQuery>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "RtlDllShutdownInProgress")));
}

void MarkProcessEnding() { ending = true; }

bool ProcessEnding() { return ending || (loaderShutdown && loaderShutdown()); }

void ApplyCrashOnError() {
    if (Settings.crashOnError) DebugBreak();
}

}  // namespace kv
