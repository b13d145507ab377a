// CDirFunctions: construction, folder queries, existence tests, names,
// attributes and sizes.
#include <windows.h>
#include <oleauto.h>
#include <mbstring.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "KvUtil.h"
#include "platform/owned_handle.h"
#include "util/dir_helpers.h"

namespace kv {

int HandBack(const char* text, char*& out) {
    if (out) free(out);
    out = static_cast<char*>(malloc(strlen(text) + 1));
    if (!out) return 0;
    strcpy(out, text);
    return 1;
}

}  // namespace kv

using kv::Guarded;

const char* const CDirFunctions::theEmptyText = "";

CDirFunctions::CDirFunctions() : findData{}, findHandle(INVALID_HANDLE_VALUE), workPath{}, moduleDir{} {
    char exe[MAX_PATH] = {};
    const DWORD len = GetModuleFileNameA(nullptr, exe, MAX_PATH);
    if (len == 0 || len >= MAX_PATH) return;
    char drive[_MAX_DRIVE], dir[_MAX_DIR];
    _splitpath(exe, drive, dir, nullptr, nullptr);
    snprintf(moduleDir, sizeof moduleDir, "%s%s", drive, dir);
}

CDirFunctions::CDirFunctions(const CDirFunctions& other) : findData{}, findHandle(INVALID_HANDLE_VALUE) {
    CopyFrom(other);
}

CDirFunctions& CDirFunctions::operator=(const CDirFunctions& other) {
    if (this != &other) CopyFrom(other);
    return *this;
}

CDirFunctions::~CDirFunctions() {
    for (BSTR item : fileList) SysFreeString(item);
    for (BSTR item : dirList) SysFreeString(item);
}

namespace {

// Copies of the items of source; empty when memory runs out, with nothing
// it made left allocated. Never throws: neither may the class's copies.
std::vector<BSTR> CopyItems(const std::vector<BSTR>& source) noexcept {
    std::vector<BSTR> copy;
    try {
        copy.reserve(source.size());
    } catch (...) {
        return copy;
    }
    for (BSTR item : source) {
        const BSTR made = SysAllocStringLen(item, SysStringLen(item));
        if (!made) {
            for (BSTR undo : copy) SysFreeString(undo);
            copy.clear();
            break;
        }
        copy.push_back(made);  // within the reserved size: no allocation
    }
    return copy;
}

void ReplaceItems(std::vector<BSTR>& target, std::vector<BSTR> items) noexcept {
    for (BSTR item : target) SysFreeString(item);
    target.swap(items);
}

}  // namespace

void CDirFunctions::CopyFrom(const CDirFunctions& other) {
    findData = other.findData;
    findHandle = other.findHandle;
    memcpy(workPath, other.workPath, sizeof workPath);
    memcpy(moduleDir, other.moduleDir, sizeof moduleDir);
    ReplaceItems(fileList, CopyItems(other.fileList));
    ReplaceItems(dirList, CopyItems(other.dirList));
}

namespace {

// GetCurrentDirectoryA and its relatives: 0 when the call fails or the path
// would not fit.
template <class Query>
int QueryFolder(char (&work)[MAX_PATH], char*& out, Query query) {
    return Guarded([&] {
        const UINT len = query(work);
        if (len == 0 || len >= MAX_PATH) return 0;
        return kv::HandBack(work, out);
    });
}

}  // namespace

int CDirFunctions::GetCurrentDir(char*& out) {
    return QueryFolder(workPath, out, [](char* buf) { return UINT(GetCurrentDirectoryA(MAX_PATH, buf)); });
}

int CDirFunctions::GetSystemDir(char*& out) {
    return QueryFolder(workPath, out, [](char* buf) { return GetSystemDirectoryA(buf, MAX_PATH); });
}

int CDirFunctions::GetWinDir(char*& out) {
    return QueryFolder(workPath, out, [](char* buf) { return GetWindowsDirectoryA(buf, MAX_PATH); });
}

int CDirFunctions::FileExist(const char* path) {
    return Guarded([&] {
        if (!path) return 0;
        // Raw on purpose: the exported class keeps the last find's handle
        // value (closed) and data in its members, which its callers may read.
        findHandle = FindFirstFileA(path, &findData);
        if (findHandle == INVALID_HANDLE_VALUE) return 0;
        FindClose(findHandle);
        return 1;
    });
}

// Intended: no directory test, a file of that name counts too.
int CDirFunctions::DirExist(const char* path) { return FileExist(path); }

int CDirFunctions::IsDirectory(const char* path) {
    // Intended: a missing path gives INVALID_FILE_ATTRIBUTES, all bits set, so 1.
    if (!path || !*path) return 0;
    return (GetFileAttributesA(path) & FILE_ATTRIBUTE_DIRECTORY) ? 1 : 0;
}

int CDirFunctions::HasExtension(const char* name) {
    const size_t len = name ? strlen(name) : 0;
    return len >= 5 && name[len - 4] == '.';
}

int CDirFunctions::ChangeExtension(const char* path, char*& out, const char* ext) {
    return Guarded([&] {
        if (!ext || !kv::CopyPath(workPath, path)) return 0;
        const bool extHasDot = strchr(ext, '.') != nullptr;
        // The first dot of the whole path, so a dot in a folder name counts.
        auto* dot = reinterpret_cast<char*>(_mbschr(reinterpret_cast<unsigned char*>(workPath), '.'));
        if (dot) {
            char* from = extHasDot ? dot : dot + 1;
            if (size_t(from - workPath) + strlen(ext) >= MAX_PATH) return 0;
            strcpy(from, ext);
        } else {
            if (strlen(workPath) + strlen(ext) + (extHasDot ? 0 : 1) >= MAX_PATH) return 0;
            if (!extHasDot) strcat(workPath, ".");
            strcat(workPath, ext);
        }
        return kv::HandBack(workPath, out);
    });
}

int CDirFunctions::ExtractFileName(const char* path, char*& out) {
    return Guarded([&] {
        if (!path || !*path) return 0;
        char* filePart = nullptr;
        const DWORD len = GetFullPathNameA(path, MAX_PATH, workPath, &filePart);
        if (len == 0 || len >= MAX_PATH) return 0;
        return kv::HandBack(filePart ? filePart : "", out);
    });
}

int CDirFunctions::GetFileSize(const char* path, unsigned long& size) {
    return Guarded([&] {
        if (!FileExist(path)) return 0;
        const kv::platform::FileHandle file(CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                                        findData.dwFileAttributes, nullptr));
        if (!file) return 0;
        SetLastError(0);
        const DWORD low = ::GetFileSize(file.get(), nullptr);
        const DWORD error = GetLastError();
        size = low;
        return (low != INVALID_FILE_SIZE || error == 0) ? 1 : 0;
    });
}

int CDirFunctions::GetFileAttrib(const char* path, int& attrib) {
    // Exact words, not bits: read-only + hidden, for example, is FA_OTHER.
    const DWORD word = path ? GetFileAttributesA(path) : INVALID_FILE_ATTRIBUTES;
    switch (word) {
    case FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_ARCHIVE: attrib = FA_READONLY; break;
    case FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE: attrib = FA_HIDDEN; break;
    case FILE_ATTRIBUTE_ARCHIVE: attrib = FA_NORMAL; break;
    default: attrib = FA_OTHER; break;
    }
    return 1;
}

int CDirFunctions::SetFileAttrib(const char* path, FILEATTRIB attrib) {
    return Guarded([&] {
        if (!FileExist(path)) return 0;
        DWORD word = FILE_ATTRIBUTE_ARCHIVE;
        if (attrib == FA_READONLY) word |= FILE_ATTRIBUTE_READONLY;
        else if (attrib == FA_HIDDEN) word |= FILE_ATTRIBUTE_HIDDEN;
        return SetFileAttributesA(path, word) ? 1 : 0;
    });
}

int CDirFunctions::CreateDir(const char* path) {
    if (!path) return 0;
    if (!*path) return 1;
    return CreateDirectoryA(path, nullptr) ? 1 : 0;
}

int CDirFunctions::SetCurrentDir(const char* path) {
    return Guarded([&] { return DirExist(path) && SetCurrentDirectoryA(path) ? 1 : 0; });
}

bool CDirFunctions::CombineAndTimestamp(const char* folder, const char* name, char* out, unsigned int outSize) {
    if (!folder || !name || !out) return false;
    // Backslash, eight date digits and the terminator.
    if (strlen(name) + strlen(folder) + 10 > outSize) return false;
    // Intended: identity with the shared empty text, not an empty content test.
    if (folder == theEmptyText) return true;
    SYSTEMTIME now;
    GetSystemTime(&now);
    snprintf(out, outSize, "%s\\%s%d%02d%02d", folder, name, now.wYear, now.wMonth, now.wDay);
    return true;
}
