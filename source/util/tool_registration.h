// Reading a registered tool's values and expanding the macros of its command.
#pragma once

#include <string>

namespace kv {

// A string value of the tool's key below the product root key under
// HKEY_LOCAL_MACHINE ("" names the default value); empty when the root key
// path, the key or the value is missing.
std::string ReadToolValue(const char* toolName, const char* valueName);

// The command with "%p%", "%d%", "%i%", "%u%" and "%b%" replaced by the
// current project, its folder and the configuration, user and binaries
// folders, and every caret pair "^x" replaced by x.
std::string ExpandToolMacros(const std::string& command);

}  // namespace kv
