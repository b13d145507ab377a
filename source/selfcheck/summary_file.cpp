// The summary into a file and the current-path notes.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "KvConfig.h"
#include "KvSelfCheck.h"
#include "platform/owned_handle.h"
#include "selfcheck/check_record.h"

using namespace kv::selfcheck;

namespace {

bool HasFolder(const char* name) { return strchr(name, '\\') || strchr(name, '/') || strchr(name, ':'); }

}  // namespace

extern "C" uint32_t PrintUnitTestSummaryToFile(const char* fileName) {
    std::string path;
    if (fileName && *fileName && HasFolder(fileName)) {
        path = fileName;
    } else {
        char folder[MAX_PATH] = "";
        if (GetKorvanLogFolder(folder, sizeof folder) <= 0) return ERROR_PATH_NOT_FOUND;
        path = std::string(folder) + "\\" + (fileName && *fileName ? fileName : "KvDebugHelpSelfCheck.txt");
    }
    const kv::platform::FileHandle file(CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return GetLastError();
    std::string text;
    for (const char c : SummaryText()) {  // CR LF on disk, for Notepad on the plant machine
        if (c == '\n') text += '\r';
        text += c;
    }
    DWORD written = 0;
    return WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) ? 0 : GetLastError();
}

extern "C" int PrintCurrentPath(void) {
    char path[MAX_PATH] = "";
    const DWORD length = GetCurrentDirectoryA(sizeof path, path);
    if (length == 0 || length >= sizeof path) return -2;
    Log("current path: %s", path);
    return static_cast<int>(length);
}

extern "C" int PrintCurrentPathWithName(const char* name) {
    if (!name || !*name) return -2;
    char path[MAX_PATH] = "";
    const DWORD length = GetFullPathNameA(name, sizeof path, path, nullptr);
    if (length == 0 || length >= sizeof path) return -2;
    Log("%s: %s", name, path);
    return static_cast<int>(length);
}
