#include "cabinet/collect_reports.h"

#include <windows.h>

#include "platform/module_path.h"
#include "platform/owned_handle.h"

namespace kvdiag {

namespace {

constexpr DWORD kReportTimeoutMs = 180000;

}  // namespace

Failure RunSelf(const std::string& arguments, const std::string& outputPath) {
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    const kv::platform::FileHandle output(CreateFileA(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!output) return Failure::FromLastError("cannot create " + outputPath);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = startup.hStdError = output.get();
    PROCESS_INFORMATION process{};
    std::string commandLine = "\"" + kv::platform::ModulePath(nullptr) + "\" " + arguments;
    if (!CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &process))
        return Failure::FromLastError("kvdiag " + arguments + " could not be started");
    const kv::platform::KernelHandle processHandle(process.hProcess), threadHandle(process.hThread);
    if (WaitForSingleObject(process.hProcess, kReportTimeoutMs) != WAIT_OBJECT_0) {
        TerminateProcess(process.hProcess, 1);
        WaitForSingleObject(process.hProcess, INFINITE);
        return Failure("kvdiag " + arguments + " did not end within " + std::to_string(kReportTimeoutMs / 1000) + " s");
    }
    return {};
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

}  // namespace kvdiag
