// CreateFolderTree: makes a folder and every missing ancestor, outermost first.
#include <windows.h>
#include <stdlib.h>
#include <string.h>

#include "config/product_folders.h"

namespace kv {
namespace {

constexpr size_t kPathBytes = 260;
// More levels than any path of kPathBytes can hold: a guard, never reached.
constexpr int kMaxLevels = int(kPathBytes);

// Drops the last component (file name and extension) and then one trailing
// separator. Returns false when the directory part was already empty.
bool CutLastComponent(char (&path)[kPathBytes]) {
    char drive[_MAX_DRIVE] = "", dir[kPathBytes] = "", name[_MAX_FNAME] = "", ext[_MAX_EXT] = "";
    _splitpath(path, drive, dir, name, ext);
    if (!dir[0]) return false;
    _makepath(path, drive, dir, nullptr, nullptr);
    const size_t length = strlen(path);
    if (length && (path[length - 1] == '\\' || path[length - 1] == '/')) path[length - 1] = '\0';
    return true;
}

bool Exists(const char* path) { return GetFileAttributesA(path) != INVALID_FILE_ATTRIBUTES; }

}  // namespace

bool CreateFolderTree(const char* path) {
    if (!path || !*path || strlen(path) >= kPathBytes) return false;
    char level[kPathBytes];
    strcpy(level, path);
    int depth = 0;
    while (depth < kMaxLevels && CutLastComponent(level)) ++depth;
    for (int i = 0; i < depth; ++i) {
        strcpy(level, path);
        for (int cut = 0; cut < depth - 1 - i; ++cut) CutLastComponent(level);
        CreateDirectoryA(level, nullptr);  // an existing level just fails
    }
    return Exists(path);
}

}  // namespace kv
