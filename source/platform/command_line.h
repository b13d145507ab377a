// Building a command line for CreateProcess.
#pragma once

#include <string>

namespace kv {
namespace platform {

// arg as one argument of a command line, quoted so that the C runtime splits
// it back into argv as it was: spaces, tabs and quotes inside, and the
// backslashes before a quote or the line's end, survive.
std::string QuoteArgument(const std::string& arg);

}  // namespace platform
}  // namespace kv
