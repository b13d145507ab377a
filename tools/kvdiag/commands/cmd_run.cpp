// kvdiag run TOOL: starts a registered tool the way a product program does.
#include <windows.h>
#include <stdio.h>

#include "KvDebugHelp.h"
#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"

KVDIAG_COMMAND(run, "TOOL", "start a registered tool with its macros expanded", kvdiag::kIniOption) {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    if (argc != 1) return kvdiag::UsageError();
    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(iniOption);
    if (!ini.valid) printf("Note: %s; the folder macros expand to nothing.\n", kvdiag::ShownLine(ini.reason).c_str());
    if (!ToolIsRegistered(argv[0])) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("'%s' is not a registered tool (see kvdiag tools)", argv[0]));
        return 1;
    }
    const int result = StartRegisteredTool(argv[0]);
    if (result == 0) {
        printf("Started %s.\n", argv[0]);
        return 0;
    }
    return kvdiag::ReportFailure(kvdiag::Failure(std::string(argv[0]) + " did not start", DWORD(result)));
}
