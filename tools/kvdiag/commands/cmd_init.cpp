// kvdiag init: creates a default product INI file where none exists, and with
// --register makes it the installation's DefaultINIPath, where every product
// process (and kvdiag without --ini) looks for it.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "KvConfig.h"
#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"

namespace {

// Writes DefaultINIPath below the product's root key (32-bit view, where
// the library reads it). An existing different value is replaced only with
// force: it is the installation's, not kvdiag's.
int Register(const std::string& iniPath, bool force) {
    char rootKey[MAX_PATH] = "";
    GetRootRegistryKeyPath(rootKey, sizeof rootKey);
    char current[MAX_PATH] = "";
    uint32_t size = sizeof current;
    const bool set = RegistryReadValueAsString(HKEY_LOCAL_MACHINE, rootKey, "DefaultINIPath", current, &size) ==
                     RegAccessSuccess;
    if (set && _stricmp(current, iniPath.c_str()) == 0) {
        printf("DefaultINIPath already names %s.\n", current);
        return 0;
    }
    if (set && !force) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("DefaultINIPath names %s; --force replaces it", current));
        return 1;
    }
    HKEY key;
    LONG rc = RegCreateKeyExA(HKEY_LOCAL_MACHINE, rootKey, 0, nullptr, 0, KEY_SET_VALUE | KEY_WOW64_32KEY, nullptr,
                              &key, nullptr);
    if (rc == ERROR_SUCCESS) {
        rc = RegSetValueExA(key, "DefaultINIPath", 0, REG_SZ, reinterpret_cast<const BYTE*>(iniPath.c_str()),
                            DWORD(iniPath.size() + 1));
        RegCloseKey(key);
    }
    if (rc != ERROR_SUCCESS) {
        kvdiag::ReportFailure(
            kvdiag::Failure("cannot write HKEY_LOCAL_MACHINE\\" + std::string(rootKey) + "\\DefaultINIPath", DWORD(rc))
                .Note(rc == ERROR_ACCESS_DENIED ? "run kvdiag as an administrator" : ""));
        return 1;
    }
    printf("DefaultINIPath (HKEY_LOCAL_MACHINE\\%s, 32-bit view) %s %s%s%s.\n", rootKey, set ? "changed to" : "set to",
           iniPath.c_str(), set ? ", was " : "", set ? current : "");
    return 0;
}

}  // namespace

KVDIAG_COMMAND(init, "", "create a default product INI file where none exists; --register makes it the DefaultINIPath",
               kvdiag::kIniOption,
               {"--register", nullptr, "with --ini: write PATH as DefaultINIPath below the product's root key"},
               {"--force", nullptr, "with --register: replace another DefaultINIPath"}) {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    bool registerPath = false, force = false;
    for (int i = 0; i < argc; ++i) {
        if (!strcmp(argv[i], "--register")) registerPath = true;
        else if (!strcmp(argv[i], "--force")) force = true;
        else return kvdiag::UsageError();
    }
    if (registerPath && !iniOption) return kvdiag::UsageError("--register needs --ini PATH");
    if (force && !registerPath) return kvdiag::UsageError("--force goes with --register");
    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(iniOption);
    if (ini.path.empty()) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("no INI path: %s", ini.reason.c_str()));
        return 1;
    }
    if (GetFileAttributesA(ini.path.c_str()) != INVALID_FILE_ATTRIBUTES) {
        printf("%s exists; left unchanged.\n", ini.path.c_str());
    } else if (!CreateDefaultIniFile()) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("cannot create %s (does its folder exist?)", ini.path.c_str()));
        return 1;
    } else {
        printf("Created %s:\n[KVEDIT]\n", ini.path.c_str());
        char text[1024];
        const int32_t n = KorvanIniReadSectionAsString("KVEDIT", text, sizeof text);
        for (int32_t at = 0; at < n; at += int32_t(strlen(text + at)) + 1) printf("%s\n", text + at);
    }
    return registerPath ? Register(ini.path, force) : 0;
}
