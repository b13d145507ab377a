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

void ApplyCrashOnError() {
    if (Settings.crashOnError) DebugBreak();
}

}  // namespace kv
