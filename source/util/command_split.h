// Splitting a command line into program and parameters.
#pragma once

#include <string>

namespace kv {

// The split of the regular expression ^(".*"|\S*)\s+(.+)$ (ECMAScript, the
// dot not matching CR or LF): true with program = group 1 and parameters =
// group 2 when it matches. Written out by hand because the library's regex
// engine recurses once per character and a long line overflows the stack.
bool SplitCommandLine(const std::string& command, std::string& program, std::string& parameters);

}  // namespace kv
