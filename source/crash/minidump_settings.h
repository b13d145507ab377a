// What the minidump filter reads from the product INI file and where it
// writes, gathered without ever waiting for a lock: the filter runs on a
// crashed thread, and a lock held by it or by a dead thread is never freed.
#pragma once

#include <windows.h>

namespace kv {

struct DumpSettings {
    int mode = 3;                // "MiniDumpType", 0..3
    bool hang = false;           // "HangProcessIfDumpFailed"
    bool iniLocked = false;      // IniFileLock was held: nothing read from the INI file
    char dumpPath[MAX_PATH] = "";    // "" when the log folder is unknown
    char syslogPath[MAX_PATH] = "";
    char fallback[200] = "";     // what was assumed instead of read, "" when nothing
};

// Each lock is tried once. Without IniFileLock: mode 3, no hang, the last
// known log folder; without the component name's lock: names without it.
void ReadDumpSettings(DumpSettings& settings);

// The same for another process, from its INI file and component name (the
// crash handler's view; no lock of this process is involved).
void ReadDumpSettingsOf(const char* iniPath, const char* componentName, DumpSettings& settings);

// One system-log line, written the way the system log writes it but without
// waiting for any lock (the application log it may be routed to is tried once).
void CrashSyslogWrite(const DumpSettings& settings, const char* format, ...);

}  // namespace kv
