// Helpers of the logging commands: the product INI file, option parsing and
// the tail of a text file.
#pragma once

#include <string>
#include <vector>

namespace kvdiag {

// Validates the product INI file named by the registry; prints why not.
bool UseProductIni();
// Reads "-n N" from the arguments (removing it); false on a bad count.
bool TakeLineCount(std::vector<std::string>& args, int& count);
// The last count lines of a file, without their line ends.
std::vector<std::string> LastLines(const std::string& path, int count);

}  // namespace kvdiag
