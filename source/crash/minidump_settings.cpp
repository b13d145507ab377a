// The minidump filter's settings and system-log lines, read and written
// without waiting for a lock. The normal readers take IniFileLock, the
// component name's lock and the application log's lock; here each is tried
// once and, when held, something safe is assumed and said.
#include "crash/minidump_settings.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <mutex>

#include "KvConfig.h"
#include "KvLogging.h"
#include "config/ini_location.h"
#include "config/product_folders.h"
#include "logging/app_log.h"
#include "logging/log_folder.h"
#include "platform/owned_handle.h"

namespace kv {
namespace {

constexpr size_t kLineSize = 1024;
constexpr size_t kIniValueRoom = 1024;

bool ReadBool(const char* iniPath, const char* section, const char* key) {
    char text[MAX_PATH] = "";
    if (IniReadValueAsString(iniPath, section, key, text, sizeof text, "0") <= 0) return false;
    return !_stricmp(text, "TRUE") || !_stricmp(text, "YES") || !strcmp(text, "1");
}

// The product log folder ("LOGS" of "KVEDIT"), created when missing; "" when
// it is not named or cannot be created.
void ReadLogFolder(const char* iniPath, char (&folder)[kIniValueRoom]) {
    GetPrivateProfileStringA("KVEDIT", "LOGS", "", folder, sizeof folder, iniPath);
    if (*folder && GetFileAttributesA(folder) == INVALID_FILE_ATTRIBUTES && !CreateFolderTree(folder)) *folder = 0;
}

// "." and the component name, or "" when none is set.
bool TryComponentSuffix(char (&suffix)[MAX_PATH]) {
    std::unique_lock<std::mutex> lock(FileNameGenerator::theComponentNameMutex, std::try_to_lock);
    if (!lock.owns_lock()) return false;
    const std::string& name = FileNameGenerator::theComponentName;
    snprintf(suffix, sizeof suffix, "%s%s", name.empty() ? "" : ".", name.c_str());
    return true;
}

// folder\base+suffix+extension, or "" when it does not fit.
void JoinPath(char (&path)[MAX_PATH], const char* folder, const char* base, const char* suffix,
              const char* extension) {
    const int n = snprintf(path, sizeof path, "%s\\%s%s%s", folder, base, suffix, extension);
    if (n < 0 || size_t(n) >= sizeof path) path[0] = 0;
}

void AddFallback(DumpSettings& settings, const char* text) {
    const size_t used = strlen(settings.fallback);
    snprintf(settings.fallback + used, sizeof settings.fallback - used, "%s%s", used ? "; " : "", text);
}

void ReadIniSettings(const char* iniPath, DumpSettings& settings, char (&folder)[kIniValueRoom]) {
    settings.mode = IniReadValueAsIntRange(iniPath, "Debug", "MiniDumpType", 3, 0, 3);
    settings.hang = ReadBool(iniPath, "Debug", "HangProcessIfDumpFailed");
    ReadLogFolder(iniPath, folder);
}

void JoinPaths(DumpSettings& settings, const char* folder, const char* suffix) {
    if (!*folder) return;
    JoinPath(settings.dumpPath, folder, "user", suffix, ".dmp");
    JoinPath(settings.syslogPath, folder, "syslog", suffix, ".dat");
}

}  // namespace

void ReadDumpSettings(DumpSettings& settings) {
    char folder[kIniValueRoom] = "";
    IniSnapshot ini;
    if (TrySnapshotIniFile(ini)) {
        // Only a validated INI file is read; otherwise the defaults and no folder.
        if (ini.valid) ReadIniSettings(ini.path, settings, folder);
    } else {
        settings.iniLocked = true;
        const bool known = TryLastKnownLogFolder(folder, sizeof folder);
        AddFallback(settings, known ? "IniFileLock held: MiniDumpType 3, last known log folder"
                                    : "IniFileLock held: MiniDumpType 3, no log folder known");
    }
    char suffix[MAX_PATH] = "";
    if (!TryComponentSuffix(suffix)) AddFallback(settings, "component name locked: file names without it");
    JoinPaths(settings, folder, suffix);
}

void ReadDumpSettingsOf(const char* iniPath, const char* componentName, DumpSettings& settings) {
    char folder[kIniValueRoom] = "";
    if (iniPath && *iniPath) ReadIniSettings(iniPath, settings, folder);
    char suffix[MAX_PATH] = "";
    if (componentName && *componentName) snprintf(suffix, sizeof suffix, ".%s", componentName);
    JoinPaths(settings, folder, suffix);
}

void CrashSyslogWrite(const DumpSettings& settings, const char* format, ...) {
    char text[kLineSize];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    char stamp[32];
    uint32_t stampLength = 0;
    GetDateTimeString(stamp, &stampLength);
    // Archiving a full application log reads the INI file: not while its lock is held.
    LogFile* routed = ApplicationSyslog;
    if (routed && routed->stream && !settings.iniLocked && TryEnterCriticalSection(&routed->lock)) {
        WriteLog(routed, "%s\t%s\n", stamp, text);
        LeaveCriticalSection(&routed->lock);
        return;
    }
    if (!*settings.syslogPath) return;
    char line[kLineSize + 64];
    int n = snprintf(line, sizeof line, "%s\t%s\r\n", stamp, text);
    if (n < 0) return;
    if (size_t(n) >= sizeof line) {
        n = int(sizeof line - 1);
        memcpy(line + n - 2, "\r\n", 2);
    }
    // One append of the whole line, shared as the system log's other writers share it.
    const kv::platform::FileHandle file(CreateFileA(settings.syslogPath, FILE_APPEND_DATA,
                                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return;
    DWORD written = 0;
    WriteFile(file.get(), line, DWORD(n), &written, nullptr);
}

}  // namespace kv
