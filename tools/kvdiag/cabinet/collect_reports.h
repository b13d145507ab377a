// What kvdiag collect gathers by running kvdiag itself: its own commands run
// as child processes (so each starts as fresh as it would from a console),
// once for every executable with a settings key.
#pragma once

#include <string>
#include <vector>

#include "common/failure.h"

namespace kvdiag {

// Runs "kvdiag ARGUMENTS" with stdout and stderr into outputPath; fails when
// it could not be started or did not end in time.
Failure RunSelf(const std::string& arguments, const std::string& outputPath);

// The executables that have a per-executable settings key.
std::vector<std::string> ExecutablesWithSettings();

}  // namespace kvdiag
