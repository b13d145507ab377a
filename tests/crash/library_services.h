// Test-side access to library services that the crash tests need but that
// another part of the library provides: looked up by name in the DLL so that
// a test can tell "not built yet" (skipped) from "wrong" (failed).
#pragma once

#include <windows.h>

namespace kvtest {

inline FARPROC LibraryExport(const char* name) {
    HMODULE dll = GetModuleHandleA("KvDebugHelp.dll");
    return dll ? GetProcAddress(dll, name) : nullptr;
}

// True when the library can validate a product INI file and write the system
// log, i.e. GenerateMiniDump can be tested end to end.
inline bool CrashChainAvailable() {
    return LibraryExport("ValidateKorvanIniFile") && LibraryExport("DirectSyslogWrite") &&
           LibraryExport("GetMemoryDumpPath") && LibraryExport("IniReadValueAsIntRange");
}

// SetKorvanIniFilePath(path) then ValidateKorvanIniFile(); true when valid.
inline bool UseProductIniFile(const char* path) {
    auto set = reinterpret_cast<int (*)(const char*)>(reinterpret_cast<void*>(LibraryExport("SetKorvanIniFilePath")));
    auto validate = reinterpret_cast<int (*)()>(reinterpret_cast<void*>(LibraryExport("ValidateKorvanIniFile")));
    if (!set || !validate) return false;
    set(path);
    return validate() == 1;
}

}  // namespace kvtest
