// The front end of kvdiag forward, shared by the console command and the
// Windows service: options, the product INI file, --status or forwarding.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace kvdiag {

// The arguments after "forward"; runs until stopEvent is set (or --for passes).
// Returns the exit code.
int RunForwardCommand(const std::vector<std::string>& args, HANDLE stopEvent);

}  // namespace kvdiag
