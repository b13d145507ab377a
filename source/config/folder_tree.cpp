// CreateFolderTree: makes a folder and every missing ancestor, outermost first.
#include <windows.h>
#include <string.h>

#include "config/product_folders.h"
#include "platform/folder_tree.h"

namespace kv {

bool CreateFolderTree(const char* path) {
    // Folder values come from 260-byte buffers; a longer path is no folder of ours.
    if (!path || !*path || strlen(path) >= 260) return false;
    platform::CreateFolderTree(path);
    return GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace kv
