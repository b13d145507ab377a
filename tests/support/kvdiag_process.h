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
    explicit KvdiagProcess(const std::string& arguments) { tool_.StartCommandLine(arguments); }
    // True once text has appeared; false when the tool ended its output first.
    bool ReadUntil(const std::string& text, DWORD timeoutMs = 60000) { return tool_.WaitForOutput(text, timeoutMs); }
    std::string OutputSoFar() { return tool_.OutputSoFar(); }
    // Waits up to timeoutMs for the end, killing the tool after that.
    HostResult Finish(DWORD timeoutMs) { return tool_.Wait(timeoutMs); }

private:
    ChildHost tool_{ChildHost::Program{"kvdiag.exe"}};
};

}  // namespace kvtest
