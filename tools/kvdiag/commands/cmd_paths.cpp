// kvdiag paths: where the product INI file is, whether it validated, and every
// product folder it names.
#include <windows.h>
#include <stdio.h>

#include <string>

#include "KvConfig.h"
#include "command.h"
#include "commands/ini_status.h"
#include "common/console_text.h"
#include "logs/product_paths.h"

namespace {

// The folder the library's lookup of code would give, without the lookup's
// creating a missing one: paths only reports what the installation holds.
void PrintFolder(const kvdiag::ProductFolderRow& row) {
    char label[40];
    snprintf(label, sizeof label, "%2d %s%s", row.code, row.key, row.below);
    std::string path;
    if (!kvdiag::ProductFolder(row.code, path)) {
        printf("  %-20s (not set)\n", label);
        return;
    }
    const DWORD attributes = GetFileAttributesA(path.c_str());
    const char* state = attributes == INVALID_FILE_ATTRIBUTES        ? " (missing)"
                        : (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ? " (a file, not a folder)"
                                                                      : "";
    printf("  %-20s %s%s\n", label, kvdiag::ShownLine(path).c_str(), state);
}

}  // namespace

KVDIAG_COMMAND(paths, "", "the product INI file, its validation and every product folder", kvdiag::kIniOption) {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    if (argc != 0) return kvdiag::UsageError();
    char rootKey[MAX_PATH], text[MAX_PATH];
    GetRootRegistryKeyPath(rootKey, sizeof rootKey);
    printf("Root registry key       HKEY_LOCAL_MACHINE\\%s (32-bit view)\n", rootKey);
    uint32_t size = sizeof text;
    const int32_t found = RegistryReadValueAsString(HKEY_LOCAL_MACHINE, rootKey, "DefaultINIPath", text, &size);
    printf("DefaultINIPath          %s\n", found == RegAccessSuccess
                                                ? kvdiag::ShownLine(text).c_str()
                                                : "(not set: kvdiag init --register --ini PATH sets it)");

    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(iniOption);
    printf("INI file                %s%s\n", ini.path.empty() ? "(none)" : kvdiag::ShownLine(ini.path).c_str(),
           iniOption ? " (from --ini)" : "");
    printf("Validated               %s%s%s\n", ini.valid ? "yes" : "no", ini.reason.empty() ? "" : " - ",
           kvdiag::ShownLine(ini.reason).c_str());
    if (!ini.valid) return 1;

    printf("\nProduct folders (section KVEDIT)\n");
    for (const kvdiag::ProductFolderRow& row : kvdiag::kProductFolders) PrintFolder(row);
    const std::string profile = kvdiag::ProfilePath();
    printf("  %-20s %s\n", "Profile",
           profile.empty() ? "(none: [RuntimeManager] Profile or RUN missing)" : kvdiag::ShownLine(profile).c_str());
    return 0;
}
