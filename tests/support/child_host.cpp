#include "child_host.h"

#include <mutex>
#include <stdexcept>

#include "platform/command_line.h"
#include "temp_dir.h"

namespace kvtest {

static std::string SettingsKeyPath(const std::string& hostName) { return "Software\\Korvan\\KvDebugHelp\\" + hostName; }

ChildHost::ChildHost(const std::string& name) : ChildHost(name, ProgramFolder(), "scenario_host.exe") {}

ChildHost::ChildHost(const std::string& name, const std::string& folder, const std::string& program)
    : name_(name), exePath_(folder + "\\" + name + ".exe"), workingDirectory_(ProgramFolder()) {
    if (!CopyFileA((ProgramFolder() + "\\" + program).c_str(), exePath_.c_str(), FALSE))
        throw std::runtime_error("cannot copy " + program + " to " + exePath_);
    RegDeleteTreeA(HKEY_CURRENT_USER, SettingsKeyPath(name_).c_str());
}

ChildHost::ChildHost(const Program& program)
    : name_(program.fileName),
      exePath_(ProgramFolder() + "\\" + program.fileName),
      workingDirectory_(ProgramFolder()),
      ownsCopy_(false) {}

ChildHost::~ChildHost() {
    if (process_) {
        TerminateProcess(process_, 1);
        Wait(5000);
    }
    if (!ownsCopy_) return;
    RegDeleteTreeA(HKEY_CURRENT_USER, SettingsKeyPath(name_).c_str());
    DeleteFileA(exePath_.c_str());
}

void ChildHost::SetSetting(const std::string& value, DWORD data) {  // creates the key when it is missing
    const std::string key = SettingsKeyPath(name_);
    if (RegSetKeyValueA(HKEY_CURRENT_USER, key.c_str(), value.c_str(), REG_DWORD, &data, sizeof data))
        throw std::runtime_error("cannot write the setting " + value);
}

void ChildHost::SetEnv(const std::string& name, const std::string& value) { env_[name] = value; }

namespace {

// The parent's environment with the overrides applied, as a CreateProcess block.
std::string EnvironmentBlock(const std::map<std::string, std::string>& overrides) {
    std::map<std::string, std::string> vars;
    char* block = GetEnvironmentStringsA();
    for (const char* p = block; *p; p += strlen(p) + 1) {
        const std::string entry = p;
        const size_t eq = entry.find('=', 1);
        if (eq != std::string::npos) vars[entry.substr(0, eq)] = entry.substr(eq + 1);
    }
    FreeEnvironmentStringsA(block);
    for (const auto& kv : overrides) vars[kv.first] = kv.second;
    std::string out;
    for (const auto& kv : vars) out += kv.first + "=" + kv.second + '\0';
    return out + '\0';
}

}  // namespace

// The read end of the child's output pipe and what came through it. The
// reading thread owns a share, so a child killed while a grandchild still
// holds the pipe can be given up on without waiting for the pipe to close.
struct ChildHost::Output {
    HANDLE pipe = nullptr;
    std::mutex lock;
    std::string text;

    static DWORD WINAPI ReadAll(void* param) {
        const std::unique_ptr<std::shared_ptr<Output>> share(static_cast<std::shared_ptr<Output>*>(param));
        Output& out = **share;
        char chunk[4096];
        DWORD got;
        while (ReadFile(out.pipe, chunk, sizeof chunk, &got, nullptr) && got) {
            std::lock_guard<std::mutex> hold(out.lock);
            out.text.append(chunk, got);
        }
        CloseHandle(out.pipe);
        return 0;
    }
};

bool ChildHost::Start(const std::vector<std::string>& args) {
    std::string arguments;
    for (const auto& a : args) arguments += " " + kv::platform::QuoteArgument(a);
    return StartCommandLine(arguments);
}

bool ChildHost::StartCommandLine(const std::string& arguments) {
    std::string commandLine = kv::platform::QuoteArgument(exePath_) + " " + arguments;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE writePipe;
    output_ = std::make_shared<Output>();
    if (!CreatePipe(&output_->pipe, &writePipe, &inherit, 0)) {
        startError_ = GetLastError();
        return false;
    }
    SetHandleInformation(output_->pipe, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    si.hStdOutput = writePipe;
    si.hStdError = writePipe;
    PROCESS_INFORMATION pi{};
    std::string env = EnvironmentBlock(env_);
    const BOOL ok = CreateProcessA(exePath_.c_str(), &commandLine[0], nullptr, nullptr, TRUE, 0, &env[0],
                                   workingDirectory_.c_str(), &si, &pi);
    CloseHandle(writePipe);
    if (!ok) {
        startError_ = GetLastError();
        CloseHandle(output_->pipe);
        return false;
    }
    CloseHandle(pi.hThread);
    process_ = pi.hProcess;
    readerThread_ = CreateThread(nullptr, 0, Output::ReadAll, new std::shared_ptr<Output>(output_), 0, nullptr);
    return true;
}

bool ChildHost::WaitForOutput(const std::string& text, DWORD timeoutMs) {
    if (!output_) return false;
    for (const DWORD start = GetTickCount();; Sleep(10)) {
        const bool ended = !readerThread_ || WaitForSingleObject(readerThread_, 0) == WAIT_OBJECT_0;
        {
            std::lock_guard<std::mutex> hold(output_->lock);
            if (output_->text.find(text) != std::string::npos) return true;
        }
        if (ended || GetTickCount() - start > timeoutMs) return false;
    }
}

std::string ChildHost::OutputSoFar() {
    if (!output_) return {};
    std::lock_guard<std::mutex> hold(output_->lock);
    return output_->text;
}

HostResult ChildHost::Wait(DWORD timeoutMs) {
    if (!process_) return {DWORD(-1), exePath_ + " could not be started (error " + std::to_string(startError_) + ")"};
    HostResult result;
    if (WaitForSingleObject(process_, timeoutMs) == WAIT_TIMEOUT) {
        result.timedOut = true;
        TerminateProcess(process_, 0xDEAD);
        WaitForSingleObject(process_, INFINITE);
    }
    GetExitCodeProcess(process_, &result.exitCode);
    CloseHandle(process_);
    process_ = nullptr;
    // The output ends when every holder of the pipe's write end is gone; a
    // killed child's own children may hold it on.
    WaitForSingleObject(readerThread_, result.timedOut ? 1000 : 10000);
    CloseHandle(readerThread_);
    readerThread_ = nullptr;
    std::lock_guard<std::mutex> hold(output_->lock);
    result.output = output_->text;
    return result;
}

HostResult ChildHost::Run(const std::vector<std::string>& args, DWORD timeoutMs) {
    Start(args);  // a child that did not start is reported by Wait
    return Wait(timeoutMs);
}

}  // namespace kvtest
