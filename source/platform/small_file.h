// Reading a small file (a cursor, a state file, a report) whole.
#pragma once

#include <windows.h>

#include <string>

namespace kv {
namespace platform {

// Reads path whole into text, sharing it with writers, renamers and deleters.
// Returns 0, ERROR_FILE_TOO_LARGE (text empty) when the file holds more than
// maxBytes, or the error that kept it from being read. A file that grows
// while it is read is read up to the size it had when it was opened.
DWORD ReadSmallFile(const std::string& path, size_t maxBytes, std::string& text);

}  // namespace platform
}  // namespace kv
