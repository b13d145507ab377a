#include "commands/version_report.h"

#include <windows.h>

#include <string>
#include <vector>

#include "KvConfig.h"
#include "platform/module_path.h"

namespace kvdiag {
namespace {

std::string FileVersion(const std::string& path) {
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeA(path.c_str(), &ignored);
    std::vector<char> data(size);
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    if (!size || !GetFileVersionInfoA(path.c_str(), 0, size, data.data()) ||
        !VerQueryValueA(data.data(), "\\", reinterpret_cast<void**>(&info), &length) || !info)
        return "(no version resource)";
    char text[64];
    snprintf(text, sizeof text, "%lu.%lu.%lu.%lu", info->dwFileVersionMS >> 16, info->dwFileVersionMS & 0xFFFF,
             info->dwFileVersionLS >> 16, info->dwFileVersionLS & 0xFFFF);
    return text;
}

void PrintFile(FILE* out, const char* label, const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    SYSTEMTIME written{};
    const bool found = GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data);
    if (found) FileTimeToSystemTime(&data.ftLastWriteTime, &written);
    fprintf(out, "%-18s %s\n%-18s %s, %llu bytes, written %04u-%02u-%02u %02u:%02u:%02u UTC\n", label,
            path.empty() ? "(not found)" : path.c_str(), "", FileVersion(path).c_str(),
            found ? (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow : 0ull,
            written.wYear, written.wMonth, written.wDay, written.wHour, written.wMinute, written.wSecond);
}

}  // namespace

bool WriteVersionReport(const std::string& path) {
    FILE* out = fopen(path.c_str(), "w");
    if (!out) return false;
    PrintVersionReport(out);
    return fclose(out) == 0;
}

void PrintVersionReport(FILE* out) {
    PrintFile(out, "KvDebugHelp.dll", kv::platform::ModulePath(GetModuleHandleA("KvDebugHelp.dll")));
    PrintFile(out, "kvdiag.exe", kv::platform::ModulePath(nullptr));
    fprintf(out, "%-18s %d.%d\n", "Product version", GetMajorVersion(), GetMinorVersion());
    char computer[MAX_COMPUTERNAME_LENGTH + 1] = "";
    DWORD length = sizeof computer;
    GetComputerNameA(computer, &length);
    // RtlGetVersion tells the true version; GetVersionEx answers 6.2 on any
    // later Windows to a program without a compatibility manifest.
    RTL_OSVERSIONINFOW os{};
    os.dwOSVersionInfoSize = sizeof os;
    using RtlGetVersionFn = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    if (auto rtlGetVersion = reinterpret_cast<RtlGetVersionFn>(
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), "RtlGetVersion"))))
        rtlGetVersion(&os);
    fprintf(out, "%-18s %s, Windows %lu.%lu build %lu %ls\n", "Machine", computer, os.dwMajorVersion,
            os.dwMinorVersion, os.dwBuildNumber, os.szCSDVersion);
    SYSTEMTIME now;
    GetLocalTime(&now);
    fprintf(out, "%-18s %04u-%02u-%02u %02u:%02u:%02u local time\n", "Collected", now.wYear, now.wMonth, now.wDay,
            now.wHour, now.wMinute, now.wSecond);
}

}  // namespace kvdiag
