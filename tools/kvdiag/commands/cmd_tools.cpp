// kvdiag tools: the tools registered below the product's root key, with their
// commands as registered and as they would start.
#include <windows.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "KvDebugHelp.h"
#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"

KVDIAG_COMMAND(tools, "", "list the registered tools with their expanded commands", kvdiag::kIniOption) {
    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(kvdiag::TakeIniOption(argc, argv));
    if (!ini.valid) printf("Note: %s; the folder macros expand to nothing.\n", kvdiag::ShownLine(ini.reason).c_str());
    char root[MAX_PATH] = {};
    if (GetRootRegistryKeyPath(root, sizeof root) <= 0) {
        kvdiag::ReportFailure(kvdiag::Failure("the product root key path is not available"));
        return 1;
    }
    std::vector<std::string> names;
    RegKey key(root, HKEY_LOCAL_MACHINE, true);
    if (!key.IsOpen() || key.EnumerateKeys(names) != RegAccessSuccess) names.clear();
    printf("Registered tools under HKEY_LOCAL_MACHINE\\%s (32-bit view):\n", root);
    int listed = 0;
    for (const std::string& name : names) {
        if (!ToolIsRegistered(name.c_str())) continue;
        char command[4096], expanded[4096], folder[MAX_PATH];
        if (GetRegisteredToolCommand(name.c_str(), 0, command, sizeof command, folder, sizeof folder) < 0 ||
            GetRegisteredToolCommand(name.c_str(), 1, expanded, sizeof expanded, nullptr, 0) < 0)
            continue;
        // Key names and values as the registry holds them: shown cleaned.
        kvdiag::PrintLine(name, "  ");
        kvdiag::PrintLine(command, "    registered: ");
        kvdiag::PrintLine(expanded, "    starts:     ");
        kvdiag::PrintLine(folder[0] ? folder : "(the shell's default)", "    in folder:  ");
        ++listed;
    }
    if (!listed) printf("  (none)\n");
    return 0;
}
