// The folder table: folder codes and the "KVEDIT" keys that name them.
#include "config/product_folders.h"

#include "config/product_ini_reader.h"

namespace kv {
namespace {

struct FolderEntry {
    int code;
    const char* key;
};

// Code 10 is a second code for the log folder, kept for older callers.
constexpr FolderEntry kFolders[] = {
    {0, "CONFIG"}, {1, "LOGS"}, {2, "LOGS"}, {3, "BIN"}, {6, "DATA"},
    {7, "USER"}, {8, "STARTER"}, {9, "LASTDATABASEPATH"}, {10, "LOGS"}, {11, "RUN"},
};
constexpr int kDriversLogFolder = 2;

const char* FolderKey(int code) {
    for (const FolderEntry& entry : kFolders)
        if (entry.code == code) return entry.key;
    return nullptr;
}

}  // namespace

bool ReadProductFolder(int code, std::string& folder) {
    const char* key = FolderKey(code);
    if (!key) return false;
    char value[kIniValueBytes];
    const size_t length = ReadProductIniKey("KVEDIT", key, value);
    if (length == 0) return false;
    folder.assign(value, length);
    if (code == kDriversLogFolder) folder += "\\Drivers";
    return true;
}

}  // namespace kv
