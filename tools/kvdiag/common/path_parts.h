// The folder and file-name parts of a Windows path (either slash).
#pragma once

#include <string>

namespace kvdiag {

// "" for a bare file name.
inline std::string FolderOf(const std::string& path) {
    const size_t slash = path.find_last_of("\\/");
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

inline std::string FileNameOf(const std::string& path) { return path.substr(path.find_last_of("\\/") + 1); }

}  // namespace kvdiag
