#include "commands/scratch_install.h"

#include <windows.h>
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "KvConfig.h"
#include "KvUtil.h"
#include "common/console_text.h"
#include "logs/product_paths.h"
#include "platform/error_text.h"
#include "platform/folder_listing.h"
#include "platform/owned_handle.h"

namespace kvdiag {

namespace {

// Kept per command: the one being made and the two before it.
constexpr size_t kKeptScratchInstalls = 2;

std::string TempFolder() {
    char temp[MAX_PATH] = "";
    const DWORD length = GetTempPathA(sizeof temp, temp);
    return length == 0 || length >= sizeof temp ? std::string() : std::string(temp);
}

// Whether rest, what follows "kvdiag-<label>-", is YYYYMMDD-HHMMSS-PID and
// nothing else, so that no folder kvdiag did not name itself is taken for a
// scratch copy; pid receives the maker's process id.
bool ScratchNameRest(const char* rest, DWORD& pid) {
    for (int i = 0; i < 16; ++i) {
        const bool dash = i == 8 || i == 15;
        if (dash ? rest[i] != '-' : !isdigit(static_cast<unsigned char>(rest[i]))) return false;
    }
    const char* digits = rest + 16;
    if (!*digits || strspn(digits, "0123456789") != strlen(digits) || strlen(digits) > 10) return false;
    pid = strtoul(digits, nullptr, 10);
    return true;
}

// A process of that id runs: perhaps the kvdiag that made the folder (a new
// process given the id of one that ended only keeps a folder longer).
bool ProcessRuns(DWORD pid) {
    const kv::platform::KernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, pid));
    if (!process) return GetLastError() == ERROR_ACCESS_DENIED;
    return WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT;
}

}  // namespace

size_t RemoveOldScratchInstalls(const char* label, size_t keep) {
    const std::string temp = TempFolder(), prefix = std::string("kvdiag-") + label + "-";
    if (temp.empty()) return 0;
    std::vector<std::pair<std::string, DWORD>> found;  // name, maker's process id
    kv::platform::VisitFolder(temp, (prefix + "*").c_str(), [&](const WIN32_FIND_DATAA& entry) {
        DWORD pid = 0;
        const bool folder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
                            !(entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT);
        if (folder && _strnicmp(entry.cFileName, prefix.c_str(), prefix.size()) == 0 &&
            ScratchNameRest(entry.cFileName + prefix.size(), pid))
            found.push_back({entry.cFileName, pid});
        return true;
    });
    // The time in the name orders them; newest first.
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    size_t removed = 0;
    CDirFunctions dir;
    for (size_t i = keep; i < found.size(); ++i) {
        const std::string path = temp + found[i].first;
        if (ProcessRuns(found[i].second)) continue;
        dir.KillDir(path.c_str());
        removed += GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES;
    }
    return removed;
}

ScratchInstall::ScratchInstall(const std::string& liveIni, const char* label) {
    const std::string temp = TempFolder();
    SYSTEMTIME now;
    GetLocalTime(&now);
    char name[96];
    snprintf(name, sizeof name, "kvdiag-%s-%04u%02u%02u-%02u%02u%02u-%lu", label, now.wYear, now.wMonth, now.wDay,
             now.wHour, now.wMinute, now.wSecond, GetCurrentProcessId());
    if (temp.empty()) {
        failure_ = Failure("no temporary folder");
        return;
    }
    root_ = temp + name;
    if (!CreateDirectoryA(root_.c_str(), nullptr) || !CreateDirectoryA(logDir().c_str(), nullptr)) {
        failure_ = Failure::FromLastError("cannot create " + root_);
        return;
    }
    if (!CopyFileA(liveIni.c_str(), iniPath().c_str(), TRUE)) {
        failure_ = Failure::FromLastError("cannot copy " + liveIni);
        return;
    }
    SetFileAttributesA(iniPath().c_str(), FILE_ATTRIBUTE_NORMAL);  // a read-only original stays so, the copy not
    if (!Set("KVEDIT", "LOGS", logDir().c_str())) failure_ = Failure("cannot write " + iniPath());
    // A library lookup creates a missing product folder: one the plant does
    // not have is looked up here instead, so the plant gets no new folder.
    for (const ProductFolderRow& row : kProductFolders) {
        char folder[MAX_PATH] = "";
        GetPrivateProfileStringA("KVEDIT", row.key, "", folder, sizeof folder, iniPath().c_str());
        const bool missing = folder[0] && GetFileAttributesA(folder) == INVALID_FILE_ATTRIBUTES;
        if (missing && !Set("KVEDIT", row.key, (root_ + "\\" + row.key).c_str()))
            failure_ = Failure("cannot write " + iniPath());
    }
}

bool ScratchInstall::Set(const char* section, const char* key, const char* value) const {
    return WritePrivateProfileStringA(section, key, value, iniPath().c_str()) != 0;
}

std::string UseScratchInstall(const std::string& liveIni, const char* label, const char* valueSection,
                              const char* valueKey, const char* value) {
    if (const size_t removed = RemoveOldScratchInstalls(label, kKeptScratchInstalls))
        printf("Removed %zu older scratch installation%s of kvdiag %s from %s (the newest %zu are kept)\n", removed,
               removed == 1 ? "" : "s", label, TempFolder().c_str(), kKeptScratchInstalls);
    const ScratchInstall scratch(liveIni, label);
    Failure failure = scratch.failure();
    if (!failure && value && !scratch.Set(valueSection, valueKey, value))
        failure = Failure("cannot write " + scratch.iniPath());
    if (!failure && !(SetKorvanIniFilePath(scratch.iniPath().c_str()), ValidateKorvanIniFile() == 1))
        failure = Failure(scratch.iniPath() + " is not usable");
    if (failure) {
        ReportFailure(Failure("no scratch installation: " + failure.text()));
        return {};
    }
    printf("Scratch installation: %s (a copy of %s; the plant's logs, dumps and INI file are left alone)\n",
           scratch.root().c_str(), liveIni.c_str());
    return scratch.iniPath();
}

}  // namespace kvdiag
