// kvdiag init: creates a default product INI file where none exists.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include "KvConfig.h"
#include "command.h"
#include "commands/ini_status.h"

KVDIAG_COMMAND(init, "", "create a default product INI file where none exists", kvdiag::kIniOption) {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    if (argc != 0) return kvdiag::UsageError();
    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(iniOption);
    if (ini.path.empty()) {
        fprintf(stderr, "kvdiag: no INI path: %s\n", ini.reason.c_str());
        return 1;
    }
    if (GetFileAttributesA(ini.path.c_str()) != INVALID_FILE_ATTRIBUTES) {
        printf("%s exists; left unchanged.\n", ini.path.c_str());
        return 0;
    }
    if (!CreateDefaultIniFile()) {
        fprintf(stderr, "kvdiag: cannot create %s (does its folder exist?)\n", ini.path.c_str());
        return 1;
    }
    printf("Created %s:\n[KVEDIT]\n", ini.path.c_str());
    char text[1024];
    const int32_t n = KorvanIniReadSectionAsString("KVEDIT", text, sizeof text);
    for (int32_t at = 0; at < n; at += int32_t(strlen(text + at)) + 1) printf("%s\n", text + at);
    return 0;
}
