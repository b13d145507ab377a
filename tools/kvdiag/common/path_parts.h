// The folder and file-name parts of a Windows path (either slash).
#pragma once

#include <windows.h>
#include <string.h>

#include <string>

namespace kvdiag {

// "" for a bare file name.
inline std::string FolderOf(const std::string& path) {
    const size_t slash = path.find_last_of("\\/");
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

inline std::string FileNameOf(const std::string& path) { return path.substr(path.find_last_of("\\/") + 1); }

// Whether a name ends with suffix (".dmp") in any letter case, as Windows compares names.
inline bool EndsWithIgnoringCase(const std::string& name, const char* suffix) {
    const size_t n = strlen(suffix);
    return name.size() >= n && _stricmp(name.c_str() + name.size() - n, suffix) == 0;
}

inline bool IsFolder(const std::string& path) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace kvdiag
