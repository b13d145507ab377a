// The three dump strengths: their flags and their callback filters. The
// filters only look at their arguments, so they are tested directly.
#include "KvCrash.h"

namespace {

bool IsThreadOrInclusionCallback(ULONG type) {
    return type == ThreadCallback || type == ThreadExCallback || type == IncludeThreadCallback ||
           type == IncludeModuleCallback;
}

}  // namespace

LightMiniDump::LightMiniDump(HANDLE file_, EXCEPTION_POINTERS* pointers) : MiniDump(file_, pointers) {}

MINIDUMP_TYPE LightMiniDump::GetDumpType() {
    return static_cast<MINIDUMP_TYPE>(MiniDumpScanMemory | MiniDumpWithIndirectlyReferencedMemory);
}

// Modules that no captured memory refers to are left out.
BOOL LightMiniDump::Callback(const MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT* output) {
    if (!input || !output) return FALSE;
    if (input->CallbackType == ModuleCallback) {
        if (!(output->ModuleWriteFlags & ModuleReferencedByMemory)) output->ModuleWriteFlags &= ~ModuleWriteModule;
        return TRUE;
    }
    return IsThreadOrInclusionCallback(input->CallbackType) ? TRUE : FALSE;
}

MediumMiniDump::MediumMiniDump(HANDLE file_, EXCEPTION_POINTERS* pointers) : MiniDump(file_, pointers) {}

MINIDUMP_TYPE MediumMiniDump::GetDumpType() {
    return static_cast<MINIDUMP_TYPE>(MiniDumpWithDataSegs | MiniDumpWithHandleData | MiniDumpWithUnloadedModules |
                                      MiniDumpWithProcessThreadData | MiniDumpWithPrivateReadWriteMemory);
}

// Module data segments are dropped. A module offered without a data segment
// is answered FALSE on purpose: the service then leaves it out altogether.
BOOL MediumMiniDump::Callback(const MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT* output) {
    if (!input || !output) return FALSE;
    if (input->CallbackType == ModuleCallback) {
        if (!(output->ModuleWriteFlags & ModuleWriteDataSeg)) return FALSE;
        output->ModuleWriteFlags &= ~ModuleWriteDataSeg;
        return TRUE;
    }
    return IsThreadOrInclusionCallback(input->CallbackType) ? TRUE : FALSE;
}

HeavyMiniDump::HeavyMiniDump(HANDLE file_, EXCEPTION_POINTERS* pointers) : MiniDump(file_, pointers) {}

MINIDUMP_TYPE HeavyMiniDump::GetDumpType() {
    return static_cast<MINIDUMP_TYPE>(MiniDumpWithFullMemory | MiniDumpWithHandleData | MiniDumpWithUnloadedModules |
                                      MiniDumpWithProcessThreadData);
}

void HeavyMiniDump::GetCallbackInfo(MINIDUMP_CALLBACK_INFORMATION& info, bool& present) {
    present = false;
    info.CallbackRoutine = nullptr;
    info.CallbackParam = nullptr;
}

BOOL HeavyMiniDump::Callback(const MINIDUMP_CALLBACK_INPUT*, MINIDUMP_CALLBACK_OUTPUT*) { return TRUE; }
