#include "logs/product_paths.h"

#include <windows.h>

#include "KvConfig.h"

namespace kvdiag {

bool ProductFolder(int code, std::string& folder) {
    folder.clear();
    // An INI value is at most 1024 bytes; "\Drivers" may follow it.
    char value[1100];
    const int32_t length = ReadKorvanFolderByType(code, value, sizeof value);
    if (length <= 0) return false;
    folder.assign(value, size_t(length));
    return true;
}

bool LogFolder(std::string& folder) { return ProductFolder(KvFolderLogs, folder); }

std::string InLogFolder(const std::string& name) {
    std::string folder;
    return LogFolder(folder) && !name.empty() ? folder + "\\" + name : "";
}

std::string ProfilePath() {
    char profile[MAX_PATH];
    std::string run;
    if (KorvanIniReadValueAsString("RuntimeManager", "Profile", profile, sizeof profile, "") <= 0 ||
        !ProductFolder(KvFolderRun, run))
        return "";
    return run + "\\" + profile + ".ini";
}

}  // namespace kvdiag
