// Runs the kvdiag tool the way an engineer would from a console, for the
// end-to-end tests of its commands.
#pragma once

#include <string>

#include "child_host.h"

namespace kvtest {

// Runs "<program folder>\kvdiag.exe ARGUMENTS" (arguments quoted by the
// caller), collecting stdout and stderr until the tool closes them; killed and
// timedOut set when it has not ended timeoutMs after that.
HostResult RunKvdiag(const std::string& arguments, DWORD timeoutMs = 120000);

// True when the tool's output contains text.
inline bool OutputHas(const HostResult& result, const std::string& text) {
    return result.output.find(text) != std::string::npos;
}

}  // namespace kvtest
