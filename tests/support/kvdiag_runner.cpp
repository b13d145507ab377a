#include "kvdiag_runner.h"

#include "temp_dir.h"

namespace kvtest {

namespace {

// Closes a kernel handle when it goes out of scope.
struct HandleCloser {
    HANDLE handle = nullptr;
    ~HandleCloser() {
        if (handle && handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
    }
};

}  // namespace

HostResult RunKvdiag(const std::string& arguments, DWORD timeoutMs) {
    HostResult result;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HandleCloser readEnd, writeEnd;
    if (!CreatePipe(&readEnd.handle, &writeEnd.handle, &inherit, 0)) return result;
    SetHandleInformation(readEnd.handle, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = writeEnd.handle;
    PROCESS_INFORMATION process{};
    std::string commandLine = "\"" + ProgramFolder() + "\\kvdiag.exe\" " + arguments;
    if (!CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
        result.output = "kvdiag.exe could not be started, error " + std::to_string(GetLastError());
        result.exitCode = DWORD(-1);
        return result;
    }
    HandleCloser processHandle{process.hProcess}, threadHandle{process.hThread};
    // Our copy of the write end must go, or the read below never sees the end.
    CloseHandle(writeEnd.handle);
    writeEnd.handle = nullptr;
    char chunk[4096];
    DWORD got;
    while (ReadFile(readEnd.handle, chunk, sizeof chunk, &got, nullptr) && got) result.output.append(chunk, got);
    if (WaitForSingleObject(process.hProcess, timeoutMs) != WAIT_OBJECT_0) {
        TerminateProcess(process.hProcess, 1);
        WaitForSingleObject(process.hProcess, INFINITE);
        result.timedOut = true;
    }
    GetExitCodeProcess(process.hProcess, &result.exitCode);
    return result;
}

}  // namespace kvtest
