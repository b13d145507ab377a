// Child processes with their output and a real timeout. A child host is a copy
// of scenario_host.exe under its own name, so it reads its own per-executable
// settings key at attach, started with a scenario and its arguments. Attach,
// detach, crashes and settings are tested this way; kvdiag runs on the same layer.
#pragma once

#include <windows.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kvtest {

// True when the tests run under Wine, for the few checks only Windows can make.
inline bool UnderWine() { return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr; }

struct HostResult {
    DWORD exitCode = 0;      // the process's exit code (0xC0000005 for an access violation, ...)
    std::string output;      // stdout and stderr together
    bool timedOut = false;   // killed after the timeout
};

class ChildHost {
public:
    // name: the host executable's base name, unique per test (it names the
    // settings key HKEY_CURRENT_USER\Software\Korvan\KvDebugHelp\<name>, which
    // is cleared here and removed again at destruction).
    explicit ChildHost(const std::string& name);
    // The same, copied from `program` (a program beside the tests) into
    // `folder`, which must hold what the program loads (the DLL, PDBs).
    ChildHost(const std::string& name, const std::string& folder, const std::string& program);
    // Another program of the program folder ("kvdiag.exe"), used as it is:
    // no copy and no settings key.
    struct Program { std::string fileName; };
    explicit ChildHost(const Program& program);
    ~ChildHost();
    ChildHost(const ChildHost&) = delete;
    ChildHost& operator=(const ChildHost&) = delete;

    // A per-executable setting (a DWORD value under the host's key).
    void SetSetting(const std::string& value, DWORD data);
    // An extra environment variable for the child (TZ=EST5, ...).
    void SetEnv(const std::string& name, const std::string& value);
    // The child's current folder (default: the folder of the test programs).
    void SetWorkingDirectory(const std::string& folder) { workingDirectory_ = folder; }

    // Runs: host SCENARIO ARGS..., waits up to timeoutMs, kills it after that.
    HostResult Run(const std::vector<std::string>& args, DWORD timeoutMs = 60000);

    // Starts without waiting (for a child that hangs on purpose); then Wait.
    bool Start(const std::vector<std::string>& args);
    // Start with the arguments already quoted into one text.
    bool StartCommandLine(const std::string& arguments);
    // Waits up to timeoutMs; on timeout the child is killed and timedOut set.
    HostResult Wait(DWORD timeoutMs);
    // Waits until the child has printed text (true), or its output ended or
    // timeoutMs passed (false).
    bool WaitForOutput(const std::string& text, DWORD timeoutMs = 60000);
    // What the child has printed so far.
    std::string OutputSoFar();

private:
    std::string name_;
    std::string exePath_;
    std::string workingDirectory_;
    bool ownsCopy_ = true;
    std::map<std::string, std::string> env_;
    HANDLE process_ = nullptr;
    DWORD startError_ = 0;  // why the last start failed
    struct Output;  // shared with the thread that reads the child's output
    std::shared_ptr<Output> output_;
    HANDLE readerThread_ = nullptr;
};

}  // namespace kvtest
