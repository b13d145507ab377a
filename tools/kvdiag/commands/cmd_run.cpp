// kvdiag run TOOL: starts a registered tool the way a product program does.
#include <windows.h>
#include <stdio.h>

#include "KvDebugHelp.h"
#include "command.h"
#include "commands/ini_status.h"

KVDIAG_COMMAND(run, "TOOL", "start a registered tool with its macros expanded", kvdiag::kIniOption) {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    if (argc != 1) return kvdiag::UsageError();
    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(iniOption);
    if (!ini.valid) printf("Note: %s; the folder macros expand to nothing.\n", ini.reason.c_str());
    if (!ToolIsRegistered(argv[0])) {
        fprintf(stderr, "kvdiag: '%s' is not a registered tool (see kvdiag tools)\n", argv[0]);
        return 1;
    }
    const int result = StartRegisteredTool(argv[0]);
    if (result == 0) {
        printf("Started %s.\n", argv[0]);
        return 0;
    }
    char text[256] = {};
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, DWORD(result), 0, text,
                   sizeof text, nullptr);
    fprintf(stderr, "kvdiag: %s did not start: error %d %s", argv[0], result, text[0] ? text : "\n");
    return 1;
}
