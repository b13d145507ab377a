// The first stack overflow of a registered process is handed to the crash
// handler before any handler of the host runs, then the dispatch goes on.
// Only that one: a second overflow finds the crash block spent, and a host
// that caught its overflow has had its dump.
#include "crash/stack_overflow_handover.h"

namespace kv {
namespace {

volatile LONG installed = 0;
volatile LONG claimed = 0;  // the first overflow of the process claims the handover
volatile LONG overflowThread = 0;
void* volatile overflowAddress = nullptr;
constexpr LONG kRunning = -1;
volatile LONG outcome = kRunning;  // a Handover once the handover returned

// Runs on what is left of an overflowed stack: no locals beyond a few words,
// no library calls but the handover (itself a few hundred bytes of stack).
LONG CALLBACK HandOverStackOverflow(EXCEPTION_POINTERS* pointers) {
    if (pointers->ExceptionRecord->ExceptionCode != static_cast<DWORD>(STATUS_STACK_OVERFLOW) ||
        InterlockedCompareExchange(&claimed, 1, 0) != 0)
        return EXCEPTION_CONTINUE_SEARCH;
    overflowThread = static_cast<LONG>(GetCurrentThreadId());
    overflowAddress = pointers->ExceptionRecord->ExceptionAddress;
    InterlockedExchange(&outcome, static_cast<LONG>(HandCrashToHandler(pointers)));
    return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

void InstallStackOverflowHandover() {
    if (InterlockedCompareExchange(&installed, 1, 0) != 0) return;
    HMODULE self = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCSTR>(&HandOverStackOverflow), &self);
    AddVectoredExceptionHandler(1, HandOverStackOverflow);
}

EarlierOverflow EarlierOverflowHandover(const EXCEPTION_POINTERS* pointers, Handover& result) {
    const LONG taken = InterlockedCompareExchange(&outcome, kRunning, kRunning);
    if (taken == kRunning) return EarlierOverflow::kNone;
    result = static_cast<Handover>(taken);
    const EXCEPTION_RECORD* record = pointers ? pointers->ExceptionRecord : nullptr;
    if (record && record->ExceptionCode == static_cast<DWORD>(STATUS_STACK_OVERFLOW) &&
        overflowThread == static_cast<LONG>(GetCurrentThreadId()) && record->ExceptionAddress == overflowAddress)
        return EarlierOverflow::kThisCrash;
    // An overflow that found no handler left the crash block unused.
    return result == Handover::kNoHandler ? EarlierOverflow::kNone : EarlierOverflow::kOtherCrash;
}

}  // namespace kv
