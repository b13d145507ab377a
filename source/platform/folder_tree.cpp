#include "platform/folder_tree.h"

namespace kv {
namespace platform {
namespace {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

// Length of the part of path that is never created: "C:\", "\\server\share\",
// "\\?\C:\", "\\?\UNC\server\share\", a leading "\" (the current drive's root).
size_t RootLength(const std::string& path) {
    size_t at = 0;
    if (path.compare(0, 4, "\\\\?\\") == 0) {
        at = 4;
        if (path.compare(at, 4, "UNC\\") != 0) return path.size() >= at + 2 && path[at + 1] == ':' ? at + 3 : at;
        at += 4;
    } else if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) {
        at = 2;
    } else {
        if (path.size() >= 2 && path[1] == ':') return IsSeparator(path[2]) ? 3 : 2;
        return IsSeparator(path[0]) ? 1 : 0;
    }
    // server and share
    for (int part = 0; part < 2; ++part) {
        while (at < path.size() && !IsSeparator(path[at])) ++at;
        if (at < path.size()) ++at;
    }
    return at;
}

DWORD FolderState(const std::string& path) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return GetLastError();
    return attributes & FILE_ATTRIBUTE_DIRECTORY ? 0 : ERROR_DIRECTORY;
}

}  // namespace

DWORD CreateFolderTree(const std::string& folder) {
    if (folder.empty()) return ERROR_INVALID_NAME;
    const DWORD state = FolderState(folder);
    if (state == 0 || state == ERROR_DIRECTORY) return state;
    const size_t root = RootLength(folder);
    for (size_t at = root; at <= folder.size(); ++at) {
        if (at < folder.size() && !IsSeparator(folder[at])) continue;
        if (at == root || IsSeparator(folder[at - 1])) continue;  // empty level ("a\\b")
        const std::string level = folder.substr(0, at);
        if (CreateDirectoryA(level.c_str(), nullptr)) continue;
        const DWORD error = GetLastError();
        if (error != ERROR_ALREADY_EXISTS && error != ERROR_ACCESS_DENIED) return error;
        // A level that exists (or that we may not create but may pass through,
        // as a share's root) is fine as long as it is a folder.
        const DWORD levelState = FolderState(level);
        if (levelState) return levelState == ERROR_FILE_NOT_FOUND || levelState == ERROR_PATH_NOT_FOUND ? error : levelState;
    }
    return FolderState(folder);
}

}  // namespace platform
}  // namespace kv
