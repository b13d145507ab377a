// Product folders and log files as the library names them, read without the
// library lookup's side effect of creating a missing folder: kvdiag's
// reading commands leave an installation as they found it.
#pragma once

#include <string>

#include "config/product_folder_table.h"

namespace kvdiag {

using kv::kProductFolders;
using kv::ProductFolderRow;

// The folder of a product folder code (KvFolderBin, ...) as the product INI
// file names it; false when the code is unknown, the INI file is not validated
// or the key is not set. Creates nothing.
bool ProductFolder(int code, std::string& folder);
// The log folder ([KVEDIT] LOGS); false when it is not set.
bool LogFolder(std::string& folder);
// A file name of the log folder joined to it; "" when the folder is not set.
std::string InLogFolder(const std::string& name);
// The runtime manager's profile, "<RUN>\\<[RuntimeManager] Profile>.ini";
// "" when either is not set.
std::string ProfilePath();

}  // namespace kvdiag
