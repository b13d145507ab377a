#include "logs/product_paths.h"

#include <windows.h>

#include "KvConfig.h"

namespace kvdiag {

bool ProductFolder(const char* key, std::string& folder) {
    char value[MAX_PATH];
    folder.clear();
    if (KorvanIniReadValueAsString("KVEDIT", key, value, sizeof value, "") <= 0) return false;
    folder = value;
    return true;
}

bool LogFolder(std::string& folder) { return ProductFolder("LOGS", folder); }

std::string InLogFolder(const std::string& name) {
    std::string folder;
    return LogFolder(folder) && !name.empty() ? folder + "\\" + name : "";
}

std::string ProfilePath() {
    char profile[MAX_PATH];
    std::string run;
    if (KorvanIniReadValueAsString("RuntimeManager", "Profile", profile, sizeof profile, "") <= 0 ||
        !ProductFolder("RUN", run))
        return "";
    return run + "\\" + profile + ".ini";
}

}  // namespace kvdiag
