// Child-host scenario of product configuration: runs a list of steps against
// the process-wide INI location and prints one line per step, so a test can
// start from a fresh process (never validated, not tolerating) every time.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "KvDebugHelp.h"
#include "scenario.h"

// Steps: set=PATH, setro=PATH, validate, validate_ro, tolerate, folder=CODE,
// createini, and the getters inipath, configured, name, profile.
KV_SCENARIO(config_steps) {
    const struct { const char* step; int32_t (*fill)(char*, uint32_t); } getters[] = {
        {"inipath", GetKorvanIniFilePath}, {"configured", GetKorvanIniFilePathAsConfigured},
        {"name", GetKorvanIniFileName}, {"profile", GetKorvanProfilePath}};
    for (int i = 0; i < argc; ++i) {
        const std::string step = argv[i];
        const std::string value = step.substr(step.find('=') == std::string::npos ? step.size() : step.find('=') + 1);
        char text[300] = "";
        const auto getter = std::find_if(getters, std::end(getters), [&](auto& g) { return step == g.step; });
        if (!step.compare(0, 4, "set=")) printf("set %d\n", SetKorvanIniFilePath(value.c_str()));
        else if (!step.compare(0, 6, "setro=")) printf("setro %d\n", SetKorvanIniFilePathEx(value.c_str(), 1));
        else if (step == "tolerate") TolerateMissingIniFile(), printf("tolerate\n");
        else if (step == "createini") printf("createini %d\n", CreateDefaultIniFile());
        else if (step == "validate" || step == "validate_ro") {
            SetLastError(0);
            const int32_t ok = step == "validate" ? ValidateKorvanIniFile() : ValidateKorvanIniFileEx(1);
            printf("%s %d error %lu\n", step.c_str(), ok, ok ? 0ul : GetLastError());
        } else if (!step.compare(0, 7, "folder=")) {
            const int32_t result = GetKorvanFolderByType(atoi(value.c_str()), text, sizeof text);
            printf("folder%s %d %s\n", value.c_str(), result, text);
        } else if (getter != std::end(getters)) {
            const int32_t result = getter->fill(text, sizeof text);
            printf("%s %d %s\n", getter->step, result, text);
        } else return printf("unknown step %s\n", step.c_str()), 2;
    }
    return 0;
}
