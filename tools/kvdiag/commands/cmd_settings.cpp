// kvdiag settings: the per-executable settings a process gets at attach.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "KvFrame.h"
#include "KvLogging.h"
#include "command.h"
#include "common/console_text.h"

namespace {

constexpr int kMaxSettings = 32;

// Settings that are switches: any non-zero value turns them on, which is no clamp.
bool IsSwitch(const char* name) {
    for (const char* s : {"CrashOnError", "ForceVirtualAlign", "AllocFromPage", "LogMemSafeCopy", "TruncateMemSafeCopy",
                          "LogErrors", "ReportErrors"})
        if (!strcmp(name, s)) return true;
    return false;
}

int PrintSettings(const char* exe) {
    DbgHlpSettingInfo rows[kMaxSettings];
    const int count = DbgHlpDescribeSettings(exe, rows, kMaxSettings);
    printf("Settings of %s (HKEY_CURRENT_USER\\Software\\Korvan\\KvDebugHelp\\%s)\n", exe, exe);
    printf("  %-22s %-14s %s\n", "Setting", "Effective", "Source");
    for (int i = 0; i < count && i < kMaxSettings; ++i) {
        const DbgHlpSettingInfo& r = rows[i];
        // Shown in the unit the registry takes: DebugLogSize is set in KB.
        const bool kilobytes = !strcmp(r.name, "DebugLogSize");
        const long long effective = kilobytes ? r.value / 1024 : r.value;
        char value[32];
        snprintf(value, sizeof value, kilobytes ? "%lld KB" : "%lld", effective);
        char source[96];
        if (r.fromRegistry)
            snprintf(source, sizeof source, "registry (%ld)", long(int32_t(r.rawValue)));
        else
            snprintf(source, sizeof source, "default");
        const bool clamped = effective != int32_t(r.rawValue) && effective != (long long)r.rawValue;
        if (r.fromRegistry && !IsSwitch(r.name) && clamped) strcat(source, ", clamped");
        if (!strcmp(r.name, "ReportErrors")) strcat(source, ", has no effect");
        if (!strncmp(r.name, "Mode16", 6)) strcat(source, ", read only in debug mode 16");
        printf("  %-22s %-14s %s\n", r.name, value, source);
    }
    return 0;
}

bool IsSettingName(const char* name) {
    DbgHlpSettingInfo rows[kMaxSettings];
    const int count = DbgHlpDescribeSettings("", rows, kMaxSettings);
    for (int i = 0; i < count && i < kMaxSettings; ++i)
        if (!strcmp(rows[i].name, name)) return true;
    return false;
}

int SetSetting(const char* exe, const char* name, const char* text) {
    if (!IsSettingName(name)) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("'%s' is not a KvDebugHelp setting", name));
        return 2;
    }
    char* end = nullptr;
    const long long value = strtoll(text, &end, 0);
    if (!*text || *end || value < INT32_MIN || value > UINT32_MAX) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("'%s' is not a 32-bit number", text));
        return 2;
    }
    // A value out of range would be stored and then clamped at attach: the
    // engineer would believe in a setting no process gets.
    int32_t low = 0, high = 0;
    if (DbgHlpGetSettingRange(name, &low, &high) == 1 && (value < low || value > high)) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("%s must lie in %ld..%ld%s; %lld was not set", name, long(low), long(high),
                strcmp(name, "DebugLogSize") ? "" : " (KB)", value));
        return 2;
    }
    char path[300];
    snprintf(path, sizeof path, "Software\\Korvan\\KvDebugHelp\\%s", exe);
    HKEY key;
    LONG rc = RegCreateKeyExA(HKEY_CURRENT_USER, path, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr);
    if (rc == ERROR_SUCCESS) {
        const DWORD data = DWORD(value);
        rc = RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&data), sizeof data);
        RegCloseKey(key);
    }
    if (rc != ERROR_SUCCESS) {
        kvdiag::ReportFailure(kvdiag::Failure(std::string("cannot write ") + path + "\\" + name, DWORD(rc)));
        return 1;
    }
    printf("Set %s = %lld for %s; it applies to processes started from now on.\n\n", name, value, exe);
    return PrintSettings(exe);
}

int RemoveSetting(const char* exe, const char* name) {
    if (!IsSettingName(name)) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("'%s' is not a KvDebugHelp setting", name));
        return 2;
    }
    char path[300];
    snprintf(path, sizeof path, "Software\\Korvan\\KvDebugHelp\\%s", exe);
    HKEY key;
    LONG rc = RegOpenKeyExA(HKEY_CURRENT_USER, path, 0, KEY_SET_VALUE, &key);
    if (rc == ERROR_SUCCESS) {
        rc = RegDeleteValueA(key, name);
        RegCloseKey(key);
    }
    if (rc == ERROR_FILE_NOT_FOUND) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("%s is not set for %s", name, exe));
        return 1;
    }
    if (rc != ERROR_SUCCESS) {
        kvdiag::ReportFailure(kvdiag::Failure(std::string("cannot remove ") + path + "\\" + name, DWORD(rc)));
        return 1;
    }
    printf("Removed %s for %s; processes started from now on get the default.\n\n", name, exe);
    return PrintSettings(exe);
}

// A process reads the key named after its file name without folder and
// extension, so "C:\Plant\Bin\AlarmServer.exe" and "AlarmServer.exe" both
// mean AlarmServer. Only ".exe" is taken off: "Driver.Modbus" is a whole name.
std::string ExecutableBaseName(const char* given) {
    std::string name = given;
    const size_t slash = name.find_last_of("\\/");
    if (slash != std::string::npos) name.erase(0, slash + 1);
    if (name.size() > 4 && _stricmp(name.c_str() + name.size() - 4, ".exe") == 0) name.resize(name.size() - 4);
    return name;
}

}  // namespace

KVDIAG_COMMAND(settings, "EXE [NAME VALUE|NAME --remove]", "show, set or remove the per-executable settings of EXE",
               {"--remove", nullptr, "delete the setting NAME: the program gets its default again"}) {
    if (argc < 1 || argc == 2 || argc > 3) return kvdiag::UsageError();
    // The name becomes one registry key below KvDebugHelp: a plain name, as a process's base name is.
    const std::string exe = ExecutableBaseName(argv[0]);
    if (exe.empty() || exe == "." || exe == ".." || !FileNameGenerator::IsComponentName(exe)) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("'%s' is not an executable's base name (such as RuntimeManager)", argv[0]));
        return 2;
    }
    if (argc == 1) return PrintSettings(exe.c_str());
    if (!strcmp(argv[2], "--remove")) return RemoveSetting(exe.c_str(), argv[1]);
    return SetSetting(exe.c_str(), argv[1], argv[2]);
}
