#include "commands/ini_status.h"

#include <windows.h>
#include <string.h>

#include "KvConfig.h"
#include "platform/error_text.h"

namespace kvdiag {

IniStatus ValidateProductIni(const char* iniOption) {
    IniStatus status;
    // The library keeps paths of up to MAX_PATH - 1 characters; a longer one
    // would leave it on DefaultINIPath, so it is refused here.
    if (iniOption && strlen(iniOption) >= MAX_PATH) {
        status.path = iniOption;
        status.reason = "the --ini path is longer than " + std::to_string(MAX_PATH - 1) + " characters";
        return status;
    }
    if (iniOption) SetKorvanIniFilePath(iniOption);
    const bool valid = ValidateKorvanIniFile() == 1;
    const DWORD error = GetLastError();
    char path[MAX_PATH] = "";
    GetKorvanIniFilePathAsConfigured(path, sizeof path);
    status.path = path;
    if (valid) {
        status.valid = true;
    } else if (status.path.empty()) {
        char rootKey[MAX_PATH] = "";
        GetRootRegistryKeyPath(rootKey, sizeof rootKey);
        status.reason = std::string("no DefaultINIPath in HKEY_LOCAL_MACHINE\\") + rootKey +
                        " (32-bit view) and no --ini PATH given; kvdiag init --register --ini PATH sets it";
    } else if (error == ERROR_WRITE_PROTECT) {
        status.valid = ValidateKorvanIniFileEx(1) == 1;
        status.readOnly = true;
        status.reason = "read-only (error 19): usable for reading only";
    } else if (error == ERROR_FILE_NOT_FOUND) {
        status.reason = "missing (error 2)";
    } else {
        status.reason = "cannot be opened (" + kv::platform::ErrorText(error) + ")";
    }
    return status;
}

const char* TakeIniOption(int& argc, char** argv) {
    for (int i = 0; i + 1 < argc; ++i) {
        if (strcmp(argv[i], "--ini") != 0) continue;
        const char* path = argv[i + 1];
        for (int j = i; j + 2 < argc; ++j) argv[j] = argv[j + 2];
        argc -= 2;
        return path;
    }
    return nullptr;
}

}  // namespace kvdiag
