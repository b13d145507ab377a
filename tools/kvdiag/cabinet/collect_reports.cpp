#include "cabinet/collect_reports.h"

#include <windows.h>
#include <stdio.h>

#include "KvConfig.h"
#include "common/path_parts.h"

namespace kvdiag {

namespace {

constexpr DWORD kReportTimeoutMs = 180000;

struct ScopedHandle {
    HANDLE h;
    ~ScopedHandle() {
        if (h && h != INVALID_HANDLE_VALUE) CloseHandle(h);
    }
};

std::string ModulePath(HMODULE module) {
    char path[MAX_PATH];
    const DWORD length = GetModuleFileNameA(module, path, sizeof path);
    return length && length < sizeof path ? path : "";
}

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

ScratchFolder::ScratchFolder() {
    char temp[MAX_PATH];
    if (!GetTempPathA(sizeof temp, temp)) return;
    const std::string path = std::string(temp) + "kvdiag-collect-" + std::to_string(GetCurrentProcessId());
    if (CreateDirectoryA(path.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS) path_ = path;
}

ScratchFolder::~ScratchFolder() {
    if (path_.empty()) return;
    WIN32_FIND_DATAA found;
    const HANDLE search = FindFirstFileA((path_ + "\\*").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) DeleteFileA(File(found.cFileName).c_str());
        } while (FindNextFileA(search, &found));
        FindClose(search);
    }
    RemoveDirectoryA(path_.c_str());
}

std::string ModuleFolder(const char* module) {
    return FolderOf(ModulePath(GetModuleHandleA(module)));
}

bool RunSelf(const std::string& arguments, const std::string& outputPath, std::string& reason) {
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    ScopedHandle output{CreateFileA(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr)};
    if (output.h == INVALID_HANDLE_VALUE) {
        reason = "cannot create " + outputPath + " (error " + std::to_string(GetLastError()) + ")";
        return false;
    }
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = startup.hStdError = output.h;
    PROCESS_INFORMATION process{};
    std::string commandLine = "\"" + ModulePath(nullptr) + "\" " + arguments;
    if (!CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &process)) {
        reason = "kvdiag " + arguments + " could not be started (error " + std::to_string(GetLastError()) + ")";
        return false;
    }
    ScopedHandle processHandle{process.hProcess}, threadHandle{process.hThread};
    if (WaitForSingleObject(process.hProcess, kReportTimeoutMs) != WAIT_OBJECT_0) {
        TerminateProcess(process.hProcess, 1);
        WaitForSingleObject(process.hProcess, INFINITE);
        reason = "kvdiag " + arguments + " did not end within " + std::to_string(kReportTimeoutMs / 1000) + " s";
        return false;
    }
    return true;
}

std::vector<std::string> ExecutablesWithSettings() {
    std::vector<std::string> names;
    HKEY key;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Korvan\\KvDebugHelp", 0, KEY_ENUMERATE_SUB_KEYS, &key) != ERROR_SUCCESS)
        return names;
    char name[256];
    for (DWORD i = 0;; ++i) {
        DWORD length = sizeof name;
        if (RegEnumKeyExA(key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        names.push_back(name);
    }
    RegCloseKey(key);
    return names;
}

bool WriteVersionReport(const std::string& path) {
    FILE* out = fopen(path.c_str(), "w");
    if (!out) return false;
    PrintVersionReport(out);
    return fclose(out) == 0;
}

void PrintVersionReport(FILE* out) {
    PrintFile(out, "KvDebugHelp.dll", ModulePath(GetModuleHandleA("KvDebugHelp.dll")));
    PrintFile(out, "kvdiag.exe", ModulePath(nullptr));
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
