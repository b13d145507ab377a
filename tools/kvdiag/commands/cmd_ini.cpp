// kvdiag ini: reads a section or one value of the product INI file.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "KvConfig.h"
#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"

namespace {

constexpr uint32_t kListBytes = 1024;

// Whether the section holds the key; keys match without regard to case.
bool HasKey(const char* section, const char* key) {
    char names[kListBytes];
    const int32_t n = KorvanIniReadValueAsString(section, nullptr, names, sizeof names, nullptr);
    for (int32_t at = 0; at < n; at += int32_t(strlen(names + at)) + 1)
        if (!_stricmp(names + at, key)) return true;
    return false;
}

}  // namespace

KVDIAG_COMMAND(ini, "SECTION [KEY]", "read a section or a value of the product INI file", kvdiag::kIniOption) {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    if (argc < 1 || argc > 2) return kvdiag::UsageError();
    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(iniOption);
    if (!ini.valid) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("the product INI file %s is not usable: %s",
                ini.path.empty() ? "(none)" : ini.path.c_str(), ini.reason.c_str()));
        return 1;
    }
    const char* section = argv[0];
    char text[kListBytes];
    if (argc == 2) {
        const char* key = argv[1];
        if (!HasKey(section, key)) {
            kvdiag::ReportFailure(kvdiag::Failure::Printf("[%s] %s is not set in %s", section, key, ini.path.c_str()));
            return 1;
        }
        KorvanIniReadValueAsString(section, key, text, sizeof text, "");
        kvdiag::PrintLine(text);
        return 0;
    }
    const int32_t n = KorvanIniReadSectionAsString(section, text, sizeof text);
    if (n <= 0) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("section [%s] is empty or missing in %s", section, ini.path.c_str()));
        return 1;
    }
    printf("[%s]\n", section);
    for (int32_t at = 0; at < n; at += int32_t(strlen(text + at)) + 1) kvdiag::PrintLine(text + at);
    return 0;
}
