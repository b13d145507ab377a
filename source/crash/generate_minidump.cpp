// GenerateMiniDump: the host's unhandled-exception filter calls this.
#include "KvCrash.h"

#include <stdio.h>

#include "KvConfig.h"
#include "KvLogging.h"

namespace {

const int kPathSize = 260;
const int kLogFolder = 1;

void Report(const char* text) { DirectSyslogWrite("%s", text); }

}  // namespace

extern "C" void GenerateMiniDump(EXCEPTION_POINTERS* exceptionPointers) {
    char dumpPath[kPathSize] = {};
    char iniPath[kPathSize] = {};
    int mode = 3;
    if (GetKorvanIniFilePath(iniPath, kPathSize) > 0)
        mode = IniReadValueAsIntRange(iniPath, "Debug", "MiniDumpType", 3, 0, 3);
    const bool hang = KorvanIniReadValueAsBool("Debug", "HangProcessIfDumpFailed", 0) != 0;
    GetMemoryDumpPath(kLogFolder, dumpPath, kPathSize);

    if (mode == 0) {
        Report("## EXCEPTION ## - Minidump creation was skipped due to [Debug]MiniDumpType setting.");
        return;
    }
    if (mode == 2) {
        // 64-bit processes cannot use the medium strength: fall back to light.
        Report("## EXCEPTION ## - 64 bit process does not support [Debug]MiniDumpType = 2 setting, minidump "
               "creation has switched to mode 1.");
        mode = 1;
    }

    // The handle is kept even when creation failed: WriteDump then answers
    // E_ACCESSDENIED, which the failure line below reports.
    HANDLE file = CreateFileA(dumpPath, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL | FILE_FLAG_WRITE_THROUGH, nullptr);
    HRESULT result;
    if (mode == 1) {
        LightMiniDump dump(file, exceptionPointers);
        result = dump.WriteDump();
    } else {
        HeavyMiniDump dump(file, exceptionPointers);
        result = dump.WriteDump();
    }
    if (result == S_OK) return;

    DirectSyslogWrite("## EXCEPTION ## - Minidump could not be created at \"%s\". DumpType=0x%x, HRESULT=0x%x", dumpPath,
                      static_cast<unsigned>(mode), static_cast<unsigned>(result));
    if (hang) {
        for (;;) Sleep(10000);  // keep the crashed process for a debugger
    }
}
