// Runs the kvdiag tool the way an engineer would from a console, for the
// end-to-end tests of its commands.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "child_host.h"
#include "text_checks.h"

namespace kvtest {

// Runs "kvdiag.exe ARGUMENTS" (arguments quoted by the caller) from the program
// folder, with env added to its environment, in folder as its current
// directory (default: the program folder). A kvdiag still running after
// timeoutMs is killed and fails the test with what it printed so far.
inline HostResult RunKvdiag(const std::string& arguments, const std::map<std::string, std::string>& env = {},
                            DWORD timeoutMs = 120000, const std::string& folder = "") {
    ChildHost kvdiag(ChildHost::Program{"kvdiag.exe"});
    for (const auto& [name, value] : env) kvdiag.SetEnv(name, value);
    if (!folder.empty()) kvdiag.SetWorkingDirectory(folder);
    kvdiag.StartCommandLine(arguments);
    HostResult result = kvdiag.Wait(timeoutMs);
    if (result.timedOut)
        ADD_FAILURE() << "kvdiag " << arguments << " still ran after " << timeoutMs << " ms; output so far:\n"
                      << result.output;
    return result;
}

// A kvdiag command line, the exit code it must give, a text its output must
// hold and one it must not ("": none).
struct KvdiagRun {
    std::string arguments;
    DWORD exitCode;
    std::string has, lacks = "";
};

// Runs each command line in order and checks what it gave.
inline void ExpectKvdiagRuns(const std::vector<KvdiagRun>& runs) {
    for (const KvdiagRun& run : runs) {
        SCOPED_TRACE(run.arguments);
        const HostResult result = RunKvdiag(run.arguments);
        EXPECT_EQ(run.exitCode, result.exitCode) << result.output;
        EXPECT_HAS(result.output, run.has);
        if (!run.lacks.empty()) EXPECT_LACKS(result.output, run.lacks);
    }
}

inline bool OutputHas(const HostResult& result, const std::string& text) {
    return result.output.find(text) != std::string::npos;
}

}  // namespace kvtest
