#include "commands/scratch_install.h"

#include <windows.h>
#include <stdio.h>

#include "KvConfig.h"
#include "logs/product_paths.h"

namespace kvdiag {

ScratchInstall::ScratchInstall(const std::string& liveIni, const char* label) {
    char temp[MAX_PATH] = "";
    const DWORD length = GetTempPathA(sizeof temp, temp);
    SYSTEMTIME now;
    GetLocalTime(&now);
    char name[96];
    snprintf(name, sizeof name, "kvdiag-%s-%04u%02u%02u-%02u%02u%02u-%lu", label, now.wYear, now.wMonth, now.wDay,
             now.wHour, now.wMinute, now.wSecond, GetCurrentProcessId());
    if (length == 0 || length >= sizeof temp) {
        error_ = "no temporary folder";
        return;
    }
    root_ = std::string(temp) + name;
    if (!CreateDirectoryA(root_.c_str(), nullptr) || !CreateDirectoryA(logDir().c_str(), nullptr)) {
        error_ = "cannot create " + root_ + " (error " + std::to_string(GetLastError()) + ")";
        return;
    }
    if (!CopyFileA(liveIni.c_str(), iniPath().c_str(), TRUE)) {
        error_ = "cannot copy " + liveIni + " (error " + std::to_string(GetLastError()) + ")";
        return;
    }
    SetFileAttributesA(iniPath().c_str(), FILE_ATTRIBUTE_NORMAL);  // a read-only original stays so, the copy not
    if (!Set("KVEDIT", "LOGS", logDir().c_str())) error_ = "cannot write " + iniPath();
    // A library lookup creates a missing product folder: one the plant does
    // not have is looked up here instead, so the plant gets no new folder.
    for (const ProductFolderRow& row : kProductFolders) {
        char folder[MAX_PATH] = "";
        GetPrivateProfileStringA("KVEDIT", row.key, "", folder, sizeof folder, iniPath().c_str());
        const bool missing = folder[0] && GetFileAttributesA(folder) == INVALID_FILE_ATTRIBUTES;
        if (missing && !Set("KVEDIT", row.key, (root_ + "\\" + row.key).c_str()))
            error_ = "cannot write " + iniPath();
    }
}

bool ScratchInstall::Set(const char* section, const char* key, const char* value) const {
    return WritePrivateProfileStringA(section, key, value, iniPath().c_str()) != 0;
}

std::string UseScratchInstall(const std::string& liveIni, const char* label, const char* valueSection,
                              const char* valueKey, const char* value) {
    const ScratchInstall scratch(liveIni, label);
    std::string error = scratch.error();
    if (error.empty() && value && !scratch.Set(valueSection, valueKey, value))
        error = "cannot write " + scratch.iniPath();
    if (error.empty() && !(SetKorvanIniFilePath(scratch.iniPath().c_str()), ValidateKorvanIniFile() == 1))
        error = scratch.iniPath() + " is not usable";
    if (!error.empty()) {
        fprintf(stderr, "kvdiag: no scratch installation: %s\n", error.c_str());
        return {};
    }
    printf("Scratch installation: %s (a copy of %s; the plant's logs, dumps and INI file are left alone)\n",
           scratch.root().c_str(), liveIni.c_str());
    return scratch.iniPath();
}

}  // namespace kvdiag
