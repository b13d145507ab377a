// The crash tests need the system log and the dump file name from the log
// writer: looked up by name in the DLL, so that a build without them skips
// those tests instead of failing them.
#pragma once

#include <windows.h>

#include "KvConfig.h"

namespace kvtest {

inline FARPROC LibraryExport(const char* name) {
    HMODULE dll = GetModuleHandleA("KvDebugHelp.dll");
    return dll ? GetProcAddress(dll, name) : nullptr;
}

// True when GenerateMiniDump can be tested end to end.
inline bool CrashChainAvailable() {
    return LibraryExport("DirectSyslogWrite") && LibraryExport("GetMemoryDumpPath") &&
           LibraryExport("IniReadValueAsIntRange") && LibraryExport("KorvanIniReadValueAsBool");
}

// SetKorvanIniFilePath(path) then ValidateKorvanIniFile(); true when valid.
inline bool UseProductIniFile(const char* path) {
    SetKorvanIniFilePath(path);
    return ValidateKorvanIniFile() == 1;
}

}  // namespace kvtest
