// The entries of a folder, without "." and "..".
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace kv {
namespace platform {

struct FolderEntry {
    std::string name;
    DWORD attributes = 0;
    unsigned long long size = 0;
    FILETIME written{};

    bool IsFolder() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
};

// Calls visit(const WIN32_FIND_DATAA&) for every entry of folder that matches
// pattern ("*", "debug*.log"), "." and ".." left out, until visit returns
// false. Returns 0, also for a folder without a match, or the error that kept
// the folder from being read (ERROR_PATH_NOT_FOUND for a missing one).
template <class Visit>
DWORD VisitFolder(const std::string& folder, const char* pattern, Visit visit) {
    std::string search = folder;
    if (!search.empty() && search.back() != '\\' && search.back() != '/') search += '\\';
    search += pattern;
    WIN32_FIND_DATAA found;
    const HANDLE listing = FindFirstFileExA(search.c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
    if (listing == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        return error == ERROR_FILE_NOT_FOUND || error == ERROR_NO_MORE_FILES ? 0 : error;
    }
    DWORD error = ERROR_NO_MORE_FILES;
    try {
        for (bool more = true; more; more = FindNextFileA(listing, &found) != FALSE) {
            const char* name = found.cFileName;
            if (name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2]))) continue;
            if (!visit(static_cast<const WIN32_FIND_DATAA&>(found))) {
                error = 0;
                break;
            }
        }
        if (error) error = GetLastError();
    } catch (...) {
        FindClose(listing);
        throw;
    }
    FindClose(listing);
    return error == ERROR_NO_MORE_FILES ? 0 : error;
}

// The matching entries of folder in the order the file system gives them
// (sort them where order matters). Returns 0 or the error, as VisitFolder.
DWORD ListFolder(const std::string& folder, const char* pattern, std::vector<FolderEntry>& entries);

}  // namespace platform
}  // namespace kv
