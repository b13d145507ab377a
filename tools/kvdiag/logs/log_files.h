// Helpers of the logging commands: the product INI file, option parsing and
// the tail of a text file.
#pragma once

#include <string>
#include <vector>

namespace kvdiag {

// Validates the product INI file named by the registry; prints why not.
bool UseProductIni();
// Whether the library takes `name` as a component name; prints why not.
bool CheckComponentName(const std::string& name);
// Reads "-n N" from the arguments (removing it); false on a bad count.
bool TakeLineCount(std::vector<std::string>& args, int& count);
// The last count lines of a file, without their line ends, read from its
// end; false with the Win32 error when the file cannot be opened or read.
bool LastLines(const std::string& path, int count, std::vector<std::string>& lines, unsigned long& error);

}  // namespace kvdiag
