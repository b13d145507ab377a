// CreateDefaultIniFile and CreateDefaultProfile: new files only, never an
// existing one overwritten or completed.
#include <windows.h>

#include <string>

#include "KvConfig.h"
#include "config/default_layout.h"
#include "config/ini_location.h"
#include "platform/owned_handle.h"

namespace {

// Creates the file only when it does not exist yet.
bool CreateNewFile(const char* path) {
    return kv::platform::FileHandle(CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                                CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr))
        .valid();
}

}  // namespace

int32_t CreateDefaultIniFile(void) {
    {
        // Held while the file is made and filled, so the path cannot change under us.
        std::lock_guard<std::mutex> lock(kv::IniFileLock);
        const char* iniPath = kv::IniLocation.path;
        if (!CreateNewFile(iniPath)) return 0;
        kv::WriteDefaultKeys(iniPath, iniPath, false);
    }
    return ValidateKorvanIniFile();
}

int32_t CreateDefaultProfile(const char* path) {
    if (!path) return 0;
    const std::string profile = path;
    std::lock_guard<std::mutex> lock(kv::IniFileLock);
    if (!CreateNewFile(profile.c_str())) return 0;
    // The data root still comes from the INI file's location.
    kv::WriteDefaultKeys(profile.c_str(), kv::IniLocation.path, true);
    return 1;
}
