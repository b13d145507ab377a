// Deliberate crashes that exercise a host's crash handling.
#include <windows.h>

#include "KvFrame.h"
#include "frame/process_state.h"

// The division sits in assembly so that the compiler can neither fold nor drop
// it: 10 divided by a zero held in a register. The fault site carries a label,
// so the guard of DbgCrashButCatch can recognise its own fault and step over
// the two-byte divide instruction.
extern "C" char kv_divide_fault_site[];
__asm__(
    ".text\n"
    ".globl kv_divide_ten_by_zero\n"
    ".def kv_divide_ten_by_zero; .scl 2; .type 32; .endef\n"
    "kv_divide_ten_by_zero:\n"
    "    xorl %ecx, %ecx\n"
    "    movl $10, %eax\n"
    "    xorl %edx, %edx\n"
    ".globl kv_divide_fault_site\n"
    "kv_divide_fault_site:\n"
    "    divl %ecx\n"
    "    ret\n");
extern "C" uint32_t kv_divide_ten_by_zero(void);

namespace {

constexpr DWORD kDivideInstructionLength = 2;  // F7 F1: divl %ecx
thread_local bool guardActive = false;

LONG CALLBACK AcceptOwnDivideFault(EXCEPTION_POINTERS* info) {
    const EXCEPTION_RECORD* record = info->ExceptionRecord;
    if (!guardActive || record->ExceptionCode != EXCEPTION_INT_DIVIDE_BY_ZERO ||
        record->ExceptionAddress != static_cast<void*>(kv_divide_fault_site))
        return EXCEPTION_CONTINUE_SEARCH;
    info->ContextRecord->Rip += kDivideInstructionLength;
    info->ContextRecord->Rax = 0;
    return EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

extern "C" {

uint32_t DbgReturnValue(uint32_t value) { return value; }

uint32_t DbgPleaseCrash(void) { return kv_divide_ten_by_zero(); }

void DbgCrashButCatch(void) {
    // GCC has no __try: a vectored handler, first in line and present only for
    // the duration of the call, plays the structured guard.
    void* handler = AddVectoredExceptionHandler(1, AcceptOwnDivideFault);
    guardActive = true;
    kv_divide_ten_by_zero();
    guardActive = false;
    if (handler) RemoveVectoredExceptionHandler(handler);
}

void DbgHlpDisplayError(void) { kv::ApplyCrashOnError(); }

}  // extern "C"
