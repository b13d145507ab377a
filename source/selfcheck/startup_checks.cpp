// The start-up checks: what the library set up at attach works now.
#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>

#include <string>

#include "KvCallStack.h"
#include "KvFrame.h"
#include "KvSelfCheck.h"
#include "frame/process_state.h"
#include "selfcheck/check_record.h"
#include "selfcheck/scoped_handle.h"
#include "selfcheck/startup_checks.h"

namespace kv {
namespace selfcheck {
namespace {

CheckResult SettingsRead() {
    DbgHlpSettingInfo rows[32];
    const int count = DbgHlpDescribeSettings(nullptr, rows, 32);
    if (count <= 0) return Fail("no settings resolved");
    char reason[128];
    snprintf(reason, sizeof reason, "%d settings for %s, DebugLogSize=%lu KB, LogErrors=%d", count, ExeName,
             static_cast<unsigned long>(Settings.debugLogSize / 1024), Settings.logErrors ? 1 : 0);
    return Pass(reason);
}

CheckResult LocksUsable() {
    if (!LocksReady) return Fail("MemoryLock and DebugLogLock are not created");
    // Each lock can be taken and released by this thread now.
    for (CRITICAL_SECTION* lock : {&MemoryLock, &DebugLogLock, &CallStackLock}) {
        EnterCriticalSection(lock);
        LeaveCriticalSection(lock);
    }
    if (AttachCount < 1) return Fail("the drivers' lock is not created");
    EnterCritical();
    ExitCritical();
    return Pass("memory, debug log, call stack and drivers' locks");
}

CheckResult StackCapture() {
    void* frames[40] = {};
    const unsigned count = GetStackFrames(frames, 40, 0);
    if (count == 0) return Fail("RtlCaptureStackBackTrace is not available or captured nothing");
    char reason[64];
    snprintf(reason, sizeof reason, "%u frames captured", count);
    return Pass(reason);
}

// A private symbol session on its own process handle, so that the library's
// own symbol handler and its options are left alone.
CheckResult SymbolsResolve() {
    ScopedHandle session;
    if (!DuplicateHandle(GetCurrentProcess(), GetCurrentProcess(), GetCurrentProcess(), session.out(), 0, FALSE,
                         DUPLICATE_SAME_ACCESS))
        return Fail("no process handle for a symbol session", GetLastError());
    if (!SymInitialize(session.get(), nullptr, TRUE)) return Fail("SymInitialize failed", GetLastError());
    alignas(SYMBOL_INFO) char storage[sizeof(SYMBOL_INFO) + 256] = {};
    auto* symbol = reinterpret_cast<SYMBOL_INFO*>(storage);
    symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
    symbol->MaxNameLen = 255;
    DWORD64 displacement = 0;
    const DWORD64 address = reinterpret_cast<DWORD64>(&RunKvDebugHelpTests);
    const BOOL found = SymFromAddr(session.get(), address, &displacement, symbol);
    const DWORD error = GetLastError();
    SymCleanup(session.get());
    if (!found) return Fail("no symbol for RunKvDebugHelpTests", error);
    if (std::string(symbol->Name).find("RunKvDebugHelpTests") == std::string::npos)
        return Fail(std::string("RunKvDebugHelpTests resolved as ") + symbol->Name);
    return Pass(std::string("RunKvDebugHelpTests resolved as ") + symbol->Name);
}

}  // namespace

void RunStartupChecks() {
    RunCheck("settings read", SettingsRead);
    RunCheck("locks usable", LocksUsable);
    RunCheck("stack capture", StackCapture);
    RunCheck("symbols resolve", SymbolsResolve);
}

}  // namespace selfcheck
}  // namespace kv

extern "C" int RunKvDebugHelpTests(void) {
    kv::selfcheck::ClearRecord();
    kv::selfcheck::RunStartupChecks();
    return kv::selfcheck::FailedCount();
}
