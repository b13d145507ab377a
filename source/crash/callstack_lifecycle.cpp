// The call-stack system's state, its part of attach and detach, and the
// exported start, stop and raw capture.
#include "KvCallStack.h"
#include "KvLogging.h"
#include "crash/callstack_caller.h"
#include "crash/callstack_lifecycle.h"
#include "crash/callstack_state.h"
#include "crash/callstack_symbols.h"
#include "frame/process_state.h"

namespace kv {

CaptureStackFn CaptureStack = nullptr;
InstrumentationSwitches Instrumentation;

void StartCallStackSystem() {
    InitializeCriticalSection(&CallStackLock);
    HMODULE kernel = GetModuleHandleA("Kernel32.dll");
    CaptureStack = kernel ? reinterpret_cast<CaptureStackFn>(
                                reinterpret_cast<void*>(GetProcAddress(kernel, "RtlCaptureStackBackTrace")))
                          : nullptr;
    if (!CaptureStack)
        DbgLogWrite("ERROR InitializeCallStackSystem unable to find RtlCaptureStackBackTrace so handling not possible");
}

void StopCallStackSystem() {
    DeleteCriticalSection(&CallStackLock);
    if (Instrumentation.symbolsReady) CleanupSymbols();
}

}  // namespace kv

extern "C" {

void InitializeCallStackSystem(void) { kv::StartCallStackSystem(); }

void ExitCallStackSystem(void) { kv::StopCallStackSystem(); }

uint16_t GetStackFrames(void** frames, uint32_t count, uint32_t skip) {
    if (!frames) return 0;
    return kv::CaptureFromCaller(frames, count, skip);
}

}  // extern "C"
