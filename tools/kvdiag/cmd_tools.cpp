// kvdiag tools: the tools registered below the product's root key, with their
// commands as registered and as they would start.
#include <windows.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "KvDebugHelp.h"
#include "command.h"
#include "ini_status.h"
#include "../../source/util/tool_registration.h"

KVDIAG_COMMAND(tools, "tools [--ini PATH]", "list the registered tools with their expanded commands") {
    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(kvdiag::TakeIniOption(argc, argv));
    if (!ini.valid) printf("Note: %s; the folder macros expand to nothing.\n", ini.reason.c_str());
    char root[MAX_PATH] = {};
    if (GetRootRegistryKeyPath(root, sizeof root) <= 0) {
        fprintf(stderr, "kvdiag: the product root key path is not available\n");
        return 1;
    }
    std::vector<std::string> names;
    RegKey key(root, HKEY_LOCAL_MACHINE, true);
    if (!key.IsOpen() || key.EnumerateKeys(names) != RegAccessSuccess) names.clear();
    printf("Registered tools under HKEY_LOCAL_MACHINE\\%s (32-bit view):\n", root);
    int listed = 0;
    for (const std::string& name : names) {
        if (!ToolIsRegistered(name.c_str())) continue;
        const std::string command = kv::ReadToolValue(name.c_str(), "");
        const std::string folder = kv::ReadToolValue(name.c_str(), "WorkingDirectory");
        printf("  %s\n", name.c_str());
        printf("    registered: %s\n", command.c_str());
        printf("    starts:     %s\n", kv::ExpandToolMacros(command).c_str());
        printf("    in folder:  %s\n", folder.empty() ? "(the shell's default)" : folder.c_str());
        ++listed;
    }
    if (!listed) printf("  (none)\n");
    return 0;
}
