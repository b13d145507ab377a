// The start-up checks: what the library set up at attach works now.
#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>

#include <string>

#include "KvCallStack.h"
#include "KvFrame.h"
#include "KvSelfCheck.h"
#include "crash/dbghelp_binding.h"
#include "crash/symbol_search_path.h"
#include "frame/process_state.h"
#include "selfcheck/check_record.h"
#include "platform/owned_handle.h"
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
// own symbol handler and its options are left alone. It searches where the
// library's handler does; the reason says whether names came from a PDB (with
// file and line) or from the export table alone.
CheckResult SymbolsResolve() {
    SymbolApi api;
    if (!api.Bind()) return Fail("dbghelp.dll or one of its symbol functions is missing", GetLastError());
    platform::KernelHandle session;
    if (!DuplicateHandle(GetCurrentProcess(), GetCurrentProcess(), GetCurrentProcess(), session.put(), 0, FALSE,
                         DUPLICATE_SAME_ACCESS))
        return Fail("no process handle for a symbol session", GetLastError());
    api.setOptions(SYMOPT_UNDNAME | SYMOPT_DEFERRED_LOADS | SYMOPT_LOAD_LINES);
    const std::string searchPath = SymbolSearchPath();
    if (!api.initialize(session.get(), searchPath.c_str(), TRUE)) return Fail("SymInitialize failed", GetLastError());
    alignas(SYMBOL_INFO) char storage[sizeof(SYMBOL_INFO) + 256] = {};
    auto* symbol = reinterpret_cast<SYMBOL_INFO*>(storage);
    symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
    symbol->MaxNameLen = 255;
    DWORD64 displacement = 0;
    const DWORD64 address = reinterpret_cast<DWORD64>(&RunKvDebugHelpTests);
    const BOOL found = api.fromAddr(session.get(), address, &displacement, symbol);
    const DWORD error = GetLastError();
    IMAGEHLP_MODULE64 module{};
    module.SizeOfStruct = sizeof module;
    const bool fromPdb = api.moduleInfo(session.get(), address, &module) && module.SymType == SymPdb;
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line;
    DWORD lineDisplacement = 0;
    const bool hasLine = api.lineFromAddr(session.get(), address, &lineDisplacement, &line) && line.FileName;
    api.cleanup(session.get());
    if (!found) return Fail("no symbol for RunKvDebugHelpTests", error);
    std::string reason = std::string("RunKvDebugHelpTests resolved as ") + symbol->Name;
    if (reason.find("RunKvDebugHelpTests", 32) == std::string::npos) return Fail(reason);
    if (fromPdb) {
        reason += std::string(" from ") + module.LoadedPdbName;
        if (hasLine) reason += " (" + std::string(line.FileName) + ":" + std::to_string(line.LineNumber) + ")";
    } else {
        reason += " from the export table only: no PDB found on " + searchPath;
    }
    return Pass(reason);
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
