// kvdiag paths: where the product INI file is, whether it validated, and every
// product folder it names.
#include <windows.h>
#include <stdio.h>

#include "KvConfig.h"
#include "command.h"
#include "commands/ini_status.h"

namespace {

struct FolderRow {
    int code;
    const char* key;
};

constexpr FolderRow kFolders[] = {
    {0, "CONFIG"}, {1, "LOGS"},    {2, "LOGS\\Drivers"},     {3, "BIN"}, {6, "DATA"},
    {7, "USER"},   {8, "STARTER"}, {9, "LASTDATABASEPATH"}, {10, "LOGS"}, {11, "RUN"},
};

void PrintFilled(const char* label, int32_t result, const char* text) {
    if (result >= 0)
        printf("  %-20s %s\n", label, text);
    else
        printf("  %-20s (not available: %d)\n", label, result);
}

}  // namespace

KVDIAG_COMMAND(paths, "paths [--ini PATH]", "the product INI file, its validation and every product folder") {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    if (argc != 0) {
        fprintf(stderr, "usage: kvdiag paths [--ini PATH]\n");
        return 2;
    }
    char rootKey[MAX_PATH], text[MAX_PATH];
    GetRootRegistryKeyPath(rootKey, sizeof rootKey);
    printf("Root registry key       HKEY_LOCAL_MACHINE\\%s (32-bit view)\n", rootKey);
    uint32_t size = sizeof text;
    const int32_t found = RegistryReadValueAsString(HKEY_LOCAL_MACHINE, rootKey, "DefaultINIPath", text, &size);
    printf("DefaultINIPath          %s\n", found == RegAccessSuccess ? text : "(not set)");

    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(iniOption);
    printf("INI file                %s%s\n", ini.path.empty() ? "(none)" : ini.path.c_str(),
           iniOption ? " (from --ini)" : "");
    printf("Validated               %s%s%s\n", ini.valid ? "yes" : "no", ini.reason.empty() ? "" : " - ",
           ini.reason.c_str());
    if (!ini.valid) return 1;

    printf("\nProduct folders (section KVEDIT; a lookup creates a missing folder)\n");
    for (const FolderRow& row : kFolders) {
        char label[32];
        snprintf(label, sizeof label, "%2d %s", row.code, row.key);
        const int32_t result = GetKorvanFolderByType(row.code, text, sizeof text);
        PrintFilled(label, result, text);
    }
    const int32_t profile = GetKorvanProfilePath(text, sizeof text);
    printf("  %-20s %s\n", "Profile", profile > 0 ? text : "(none: [RuntimeManager] Profile or RUN missing)");
    return 0;
}
