// Child-host scenario of product configuration: runs a list of steps against
// the process-wide INI location and prints one line per step, so a test can
// start from a fresh process (never validated, not tolerating) every time.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "KvDebugHelp.h"
#include "scenario.h"

namespace {

// Prints "step result [text]" for a buffer-filling export.
void PrintFilled(const char* step, int32_t (*fill)(char*, uint32_t)) {
    char text[300];
    const int32_t result = fill(text, sizeof text);
    printf("%s %d %s\n", step, result, text);
}

}  // namespace

// Steps: set=PATH, setro=PATH, validate, validate_ro, invalidate, tolerate,
// folder=CODE, inipath, configured, name, profile, createini.
KV_SCENARIO(config_steps) {
    for (int i = 0; i < argc; ++i) {
        const std::string step = argv[i];
        const std::string value = step.find('=') == std::string::npos ? "" : step.substr(step.find('=') + 1);
        if (!step.compare(0, 4, "set=")) {
            printf("set %d\n", SetKorvanIniFilePath(value.c_str()));
        } else if (!step.compare(0, 6, "setro=")) {
            printf("setro %d\n", SetKorvanIniFilePathEx(value.c_str(), 1));
        } else if (step == "validate" || step == "validate_ro") {
            SetLastError(0);
            const int32_t ok = step == "validate" ? ValidateKorvanIniFile() : ValidateKorvanIniFileEx(1);
            printf("%s %d error %lu\n", step.c_str(), ok, ok ? 0ul : GetLastError());
        } else if (step == "invalidate") {
            InvalidateKorvanIniFile();
            printf("invalidate\n");
        } else if (step == "tolerate") {
            TolerateMissingIniFile();
            printf("tolerate\n");
        } else if (!step.compare(0, 7, "folder=")) {
            char text[300];
            const int32_t result = GetKorvanFolderByType(atoi(value.c_str()), text, sizeof text);
            printf("folder%s %d %s\n", value.c_str(), result, text);
        } else if (step == "inipath") {
            PrintFilled("inipath", GetKorvanIniFilePath);
        } else if (step == "configured") {
            PrintFilled("configured", GetKorvanIniFilePathAsConfigured);
        } else if (step == "name") {
            PrintFilled("name", GetKorvanIniFileName);
        } else if (step == "profile") {
            PrintFilled("profile", GetKorvanProfilePath);
        } else if (step == "createini") {
            printf("createini %d\n", CreateDefaultIniFile());
        } else {
            printf("unknown step %s\n", step.c_str());
            return 2;
        }
    }
    return 0;
}
