// Making a folder with every missing folder above it.
#pragma once

#include <windows.h>

#include <string>

namespace kv {
namespace platform {

// Creates folder and its missing ancestors, outermost first; either slash,
// drive, UNC ("\\server\share\...") and "\\?\" paths. Returns 0 when the folder
// exists afterwards (also when it did before), ERROR_DIRECTORY when a file
// stands where a folder should be, or the error of the level that failed.
DWORD CreateFolderTree(const std::string& folder);

}  // namespace platform
}  // namespace kv
