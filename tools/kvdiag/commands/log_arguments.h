// Arguments the logging commands share: component names and "-n N".
#pragma once

#include <string>
#include <vector>

namespace kvdiag {

// Whether the library takes name as a component name; says why not, with the
// command's usage.
bool CheckComponentName(const std::string& name);
// Reads "-n N" from the arguments (removing it); false, said, on a bad count.
bool TakeLineCount(std::vector<std::string>& args, int& count);

}  // namespace kvdiag
