// kvdiag started without waiting, for commands that run until they are told
// to end (tail -f): the test reads its output as it comes, acts, then lets
// it finish.
#pragma once

#include <string>

#include "child_host.h"

namespace kvtest {

class KvdiagProcess {
public:
    // Starts "<program folder>\kvdiag.exe ARGUMENTS" (arguments quoted by the caller).
    explicit KvdiagProcess(const std::string& arguments);
    ~KvdiagProcess();  // kills the tool if it still runs
    KvdiagProcess(const KvdiagProcess&) = delete;
    KvdiagProcess& operator=(const KvdiagProcess&) = delete;

    // Reads output until text has appeared (true) or the tool closed its output.
    bool ReadUntil(const std::string& text);
    // Reads the rest and waits up to timeoutMs for the end, killing it after that.
    HostResult Finish(DWORD timeoutMs);

private:
    bool ReadSome();

    HANDLE process_ = nullptr;
    HANDLE readPipe_ = nullptr;
    HostResult result_;
};

}  // namespace kvtest
