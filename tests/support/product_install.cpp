#include "product_install.h"

#include <windows.h>

namespace kvtest {

ProductInstall::ProductInstall() {
    CreateDirectoryA((dir_ / "Config").c_str(), nullptr);
    const struct {
        const char* key;
        std::string value;
    } folders[] = {
        {"CONFIG", dir_ / "Config"},  {"LOGS", dir_ / "Logs"},       {"BIN", ProgramFolder()},
        {"DATA", dir_ / "Data"},      {"USER", dir_ / "User"},       {"STARTER", dir_ / "Starter"},
        {"LASTDATABASEPATH", dir_ / "User\\Include"}, {"RUN", dir_ / "Run"},
    };
    for (const auto& f : folders) SetValue("KVEDIT", f.key, f.value);
}

void ProductInstall::SetValue(const std::string& section, const std::string& key, const std::string& value) const {
    WritePrivateProfileStringA(section.c_str(), key.c_str(), value.c_str(), iniPath().c_str());
}

}  // namespace kvtest
