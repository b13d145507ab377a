// Product folders named by the product INI file, and folder creation.
#pragma once

#include <string>

namespace kv {
// The folder the product INI file names for a folder code, as the folder table builds it (code 2 with "\Drivers" appended); false when the code is unknown, the INI file is not validated, or the key is missing or empty. Creates nothing.
bool ReadProductFolder(int code, std::string& folder);
// Creates the folder with all its missing parents; true when it exists afterwards.
bool CreateFolderTree(const char* path);
}
