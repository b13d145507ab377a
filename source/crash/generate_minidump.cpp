// GenerateMiniDump: the host's unhandled-exception filter calls this. It may
// run on a thread that crashed while holding one of the library's locks, or
// while another thread that holds one is stuck or dead, so it never waits for
// a lock: see minidump_settings.h. With a crash handler registered it only
// hands the crash over (crash_handover.h); this process writes the dump itself
// only when there is none or it does not answer.
#include "KvCrash.h"

#include "crash/crash_handover.h"
#include "crash/stack_overflow_handover.h"
#include "crash/minidump_settings.h"

namespace {

// Kept out of GenerateMiniDump's own frame, so that the handover runs in the
// little stack a stack overflow leaves.
__attribute__((noinline)) void WriteDumpInProcess(EXCEPTION_POINTERS* exceptionPointers, const char* handlerNote) {
    kv::DumpSettings settings;
    kv::ReadDumpSettings(settings);
    int mode = settings.mode;
    if (handlerNote)
        kv::CrashSyslogWrite(settings, "## EXCEPTION ## - %s: the crashed process writes the minidump itself.",
                             handlerNote);

    if (mode == 0) {
        kv::CrashSyslogWrite(settings,
                             "## EXCEPTION ## - Minidump creation was skipped due to [Debug]MiniDumpType setting.");
        return;
    }
    if (mode == 2) {
        // 64-bit processes cannot use the medium strength: fall back to light.
        kv::CrashSyslogWrite(settings, "## EXCEPTION ## - 64 bit process does not support [Debug]MiniDumpType = 2 "
                                       "setting, minidump creation has switched to mode 1.");
        mode = 1;
    }

    // The handle is kept even when creation failed: WriteDump then answers
    // E_ACCESSDENIED, which the failure line below reports.
    HANDLE file = CreateFileA(settings.dumpPath, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL | FILE_FLAG_WRITE_THROUGH, nullptr);
    HRESULT result;
    if (mode == 1) {
        LightMiniDump dump(file, exceptionPointers);
        result = dump.WriteDump();
    } else {
        HeavyMiniDump dump(file, exceptionPointers);
        result = dump.WriteDump();
    }
    const char* fallback = settings.fallback;
    if (result == S_OK) {
        if (*fallback)
            kv::CrashSyslogWrite(settings, "## EXCEPTION ## - Minidump created at \"%s\" with fallback: %s.",
                                 settings.dumpPath, fallback);
        return;
    }

    kv::CrashSyslogWrite(settings, "## EXCEPTION ## - Minidump could not be created at \"%s\". DumpType=0x%x, HRESULT=0x%x%s%s",
                         settings.dumpPath, static_cast<unsigned>(mode), static_cast<unsigned>(result),
                         *fallback ? ", fallback: " : "", fallback);
    if (settings.hang) {
        for (;;) Sleep(10000);  // keep the crashed process for a debugger
    }
}

// What the crash handler made of this crash; null when it took it, else why
// this process writes the dump itself (kNoHandlerNote: no handler, say nothing).
const char kNoHandlerNote[] = "";
const char* HandOver(EXCEPTION_POINTERS* exceptionPointers) {
    kv::Handover outcome = kv::Handover::kNoHandler;
    switch (kv::EarlierOverflowHandover(exceptionPointers, outcome)) {
        case kv::EarlierOverflow::kNone: outcome = kv::HandCrashToHandler(exceptionPointers); break;
        case kv::EarlierOverflow::kThisCrash: break;  // the vectored handler handed it over already
        case kv::EarlierOverflow::kOtherCrash: return "Crash handler has written this process's stack overflow dump";
    }
    switch (outcome) {
        case kv::Handover::kDumped: return nullptr;
        case kv::Handover::kNoAnswer: return "Crash handler did not answer in time";
        case kv::Handover::kHandlerGone: return "Crash handler is gone";
        case kv::Handover::kRefused: return "Crash handler refused this process's log folder";
        case kv::Handover::kNoHandler: break;
    }
    return kNoHandlerNote;
}

}  // namespace

extern "C" void GenerateMiniDump(EXCEPTION_POINTERS* exceptionPointers) {
    const char* handlerNote = nullptr;
    if (exceptionPointers) {
        handlerNote = HandOver(exceptionPointers);
        if (!handlerNote) return;
        if (handlerNote == kNoHandlerNote) handlerNote = nullptr;
    }
    WriteDumpInProcess(exceptionPointers, handlerNote);
}
