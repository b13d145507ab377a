// Runs the kvdiag tool the way an engineer would from a console, for the
// end-to-end tests of its commands.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "child_host.h"
#include "text_checks.h"

namespace kvtest {

// Runs "kvdiag.exe ARGUMENTS" (arguments quoted by the caller) from the program
// folder, with env added to its environment. A kvdiag still running after
// timeoutMs is killed and fails the test with what it printed so far.
inline HostResult RunKvdiag(const std::string& arguments, const std::map<std::string, std::string>& env = {},
                            DWORD timeoutMs = 120000) {
    ChildHost kvdiag(ChildHost::Program{"kvdiag.exe"});
    for (const auto& [name, value] : env) kvdiag.SetEnv(name, value);
    kvdiag.StartCommandLine(arguments);
    HostResult result = kvdiag.Wait(timeoutMs);
    if (result.timedOut)
        ADD_FAILURE() << "kvdiag " << arguments << " still ran after " << timeoutMs << " ms; output so far:\n"
                      << result.output;
    return result;
}

inline bool OutputHas(const HostResult& result, const std::string& text) {
    return result.output.find(text) != std::string::npos;
}

}  // namespace kvtest
