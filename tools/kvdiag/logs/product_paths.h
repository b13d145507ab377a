// Product folders and log files as the library names them, read from the
// product INI file without the library lookup's side effect of creating a
// missing folder: kvdiag's reading commands leave an installation as they
// found it.
#pragma once

#include <string>

namespace kvdiag {

// The product folders by code, as the library's folder lookup names them:
// the [KVEDIT] key, and what is added to its value.
struct ProductFolderRow {
    int code;
    const char* key;
    const char* below;
};
constexpr ProductFolderRow kProductFolders[] = {
    {0, "CONFIG", ""}, {1, "LOGS", ""},        {2, "LOGS", "\\Drivers"}, {3, "BIN", ""},
    {6, "DATA", ""},   {7, "USER", ""},        {8, "STARTER", ""},       {9, "LASTDATABASEPATH", ""},
    {10, "LOGS", ""},  {11, "RUN", ""},
};

// The folder that [KVEDIT] KEY names; false when the key is not set.
bool ProductFolder(const char* key, std::string& folder);
// The log folder ([KVEDIT] LOGS); false when it is not set.
bool LogFolder(std::string& folder);
// A file name of the log folder joined to it; "" when the folder is not set.
std::string InLogFolder(const std::string& name);
// The runtime manager's profile, "<RUN>\\<[RuntimeManager] Profile>.ini";
// "" when either is not set.
std::string ProfilePath();

}  // namespace kvdiag
