#include "kvdiag_process.h"

#include "temp_dir.h"

namespace kvtest {

KvdiagProcess::KvdiagProcess(const std::string& arguments) {
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE writePipe = nullptr;
    if (!CreatePipe(&readPipe_, &writePipe, &inherit, 0)) return;
    SetHandleInformation(readPipe_, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = writePipe;
    PROCESS_INFORMATION process{};
    std::string commandLine = "\"" + ProgramFolder() + "\\kvdiag.exe\" " + arguments;
    if (CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
        process_ = process.hProcess;
        CloseHandle(process.hThread);
    } else {
        result_.output = "kvdiag.exe could not be started, error " + std::to_string(GetLastError());
        result_.exitCode = DWORD(-1);
    }
    // Our copy of the write end must go, or reading never sees the end.
    CloseHandle(writePipe);
}

KvdiagProcess::~KvdiagProcess() {
    if (process_) {
        TerminateProcess(process_, 1);
        WaitForSingleObject(process_, INFINITE);
        CloseHandle(process_);
    }
    if (readPipe_) CloseHandle(readPipe_);
}

bool KvdiagProcess::ReadSome() {
    char chunk[4096];
    DWORD got = 0;
    if (!process_ || !ReadFile(readPipe_, chunk, sizeof chunk, &got, nullptr) || !got) return false;
    result_.output.append(chunk, got);
    return true;
}

bool KvdiagProcess::ReadUntil(const std::string& text) {
    while (result_.output.find(text) == std::string::npos)
        if (!ReadSome()) return false;
    return true;
}

HostResult KvdiagProcess::Finish(DWORD timeoutMs) {
    while (ReadSome()) {
    }
    if (!process_) return result_;
    if (WaitForSingleObject(process_, timeoutMs) != WAIT_OBJECT_0) {
        TerminateProcess(process_, 1);
        WaitForSingleObject(process_, INFINITE);
        result_.timedOut = true;
    }
    GetExitCodeProcess(process_, &result_.exitCode);
    CloseHandle(process_);
    process_ = nullptr;
    return result_;
}

}  // namespace kvtest
