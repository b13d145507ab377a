// kvdiag version: which KvDebugHelp.dll and kvdiag.exe run here, with the
// versions their resources carry.
#include <stdio.h>

#include "command.h"
#include "commands/version_report.h"

KVDIAG_COMMAND(version, "", "versions of KvDebugHelp.dll and kvdiag.exe, and the machine") {
    (void)argv;
    if (argc != 0) return kvdiag::UsageError();
    kvdiag::PrintVersionReport(stdout);
    return 0;
}
