// kvdiag forward as a Windows service: installed into the service control
// manager to start at boot (no user logged in), it runs
// "kvdiag service run forward ARGS..." under the service dispatcher and
// stops, cursors saved, when the manager asks.
#pragma once

#include <string>
#include <vector>

namespace kvdiag {

constexpr char kServiceName[] = "KvDiagForward";

// Returns the exit code; messages go to stderr.
int InstallForwardService(const std::vector<std::string>& forwardArgs);
int RemoveForwardService();
// Called by the service manager through the installed command line.
int RunForwardService(const std::vector<std::string>& forwardArgs);

}  // namespace kvdiag
