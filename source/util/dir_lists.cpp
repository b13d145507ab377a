// CDirFunctions: the file and sub-folder lists and their items.
#include <windows.h>
#include <oleauto.h>
#include <string.h>

#include <string>

#include "KvUtil.h"
#include "platform/folder_listing.h"
#include "util/dir_helpers.h"

namespace {

constexpr HRESULT kOutOfMemory = HRESULT(0x8007000E);

// Raised when a list item cannot be converted; the members' catch-all turns it
// into the failure result.
struct ConversionFailure {
    HRESULT code;
};

BSTR ToBstr(const std::string& text) {
    const int n = MultiByteToWideChar(CP_THREAD_ACP, 0, text.c_str(), -1, nullptr, 0);
    if (n <= 0) throw ConversionFailure{kOutOfMemory};
    BSTR item = SysAllocStringLen(nullptr, UINT(n - 1));
    if (!item) throw ConversionFailure{kOutOfMemory};
    if (MultiByteToWideChar(CP_THREAD_ACP, 0, text.c_str(), -1, item, n) <= 0) {
        SysFreeString(item);
        throw ConversionFailure{kOutOfMemory};
    }
    return item;
}

std::string FromBstr(BSTR item) {
    const int n = WideCharToMultiByte(CP_THREAD_ACP, 0, item, -1, nullptr, 0, nullptr, nullptr);
    if (n <= 0) throw ConversionFailure{kOutOfMemory};
    std::string text(size_t(n), '\0');
    if (WideCharToMultiByte(CP_THREAD_ACP, 0, item, -1, &text[0], n, nullptr, nullptr) <= 0)
        throw ConversionFailure{kOutOfMemory};
    text.resize(size_t(n - 1));
    return text;
}

void FreeItems(std::vector<BSTR>& list) {
    for (BSTR item : list) SysFreeString(item);
    list.clear();
}

// Intended: whole attribute words compared for equality, not bits. A plain
// file whose word is FILE_ATTRIBUTE_NORMAL (0x80) is not listed.
bool IsListedFile(DWORD word) {
    return word == 0x20 || word == 0x21 || word == 0x22 || word == 0x04 || word == 0x100;
}

bool IsListedFolder(DWORD word) {
    return word == 0x10 || word == 0x12 || word == 0x14 || word == 0x15 || word == 0x16 || word == 0x30;
}

}  // namespace

int CDirFunctions::FillList(std::vector<BSTR>& list, const char* dir, int fullPath, bool folders) {
    return kv::Guarded([&] {
        if (!dir) return 0;
        if (*dir) {
            if (!DirExist(dir) || !kv::CopyPath(workPath, dir)) return 0;
        } else {
            const DWORD len = GetCurrentDirectoryA(MAX_PATH, workPath);
            if (len == 0 || len >= MAX_PATH) return 0;
        }
        std::string prefix;
        if (fullPath) {
            char full[MAX_PATH];
            DWORD len = GetFullPathNameA(dir, MAX_PATH, full, nullptr);
            if (len == 0 || len >= MAX_PATH) len = GetCurrentDirectoryA(MAX_PATH, full);
            if (len == 0 || len >= MAX_PATH) return 0;
            prefix = full;
            // One separator, also after a root such as C:\ .
            if (!kv::EndsInBackslash(full)) prefix += '\\';
        }
        FreeItems(list);
        if (!workPath[0]) return 0;
        const std::string folder = workPath;
        // The search "<folder>\*.*" must fit MAX_PATH, as every path of the class.
        if (!kv::AppendPath(workPath, kv::EndsInBackslash(workPath) ? "*.*" : "\\*.*")) return 0;
        // A folder that cannot be read lists what was found before the failure: nothing, or a part.
        kv::platform::VisitFolder(folder, "*.*", [&](const WIN32_FIND_DATAA& found) {
            const DWORD word = found.dwFileAttributes;
            if (!(folders ? IsListedFolder(word) : IsListedFile(word))) return true;
            BSTR item = ToBstr(fullPath ? prefix + found.cFileName : std::string(found.cFileName));
            try {
                list.push_back(item);
            } catch (...) {
                SysFreeString(item);
                throw;
            }
            return true;
        });
        return int(list.size());
    });
}

int CDirFunctions::FetchItem(const std::vector<BSTR>& list, int index, char*& out) {
    return kv::Guarded([&] {
        if (list.empty()) return 0;
        // 1-based; below 1 selects the first item, beyond the end finds nothing.
        const size_t position = index < 1 ? 0 : size_t(index) - 1;
        if (position >= list.size()) return 0;
        return kv::HandBack(FromBstr(list[position]).c_str(), out);
    });
}

int CDirFunctions::GetFilesDir(const char* dir, int fullPath) { return FillList(fileList, dir, fullPath, false); }
int CDirFunctions::GetSubDirs(const char* dir, int fullPath) { return FillList(dirList, dir, fullPath, true); }
int CDirFunctions::GetItemFile(int index, char*& out) { return FetchItem(fileList, index, out); }
int CDirFunctions::GetItemDir(int index, char*& out) { return FetchItem(dirList, index, out); }
