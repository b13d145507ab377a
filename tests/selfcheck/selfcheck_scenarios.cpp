// Child-host scenario of the self-check suite.
#include <stdio.h>

#include "KvDebugHelp.h"
#include "scenario.h"

// INI_PATH: validates it, runs every check, prints the summary; the exit code
// is the number of failed checks.
KV_SCENARIO(selfcheck_after_startup) {
    if (argc < 1) return 100;
    SetKorvanIniFilePath(argv[0]);
    if (ValidateKorvanIniFile() != 1) return 101;
    RunKvDebugHelpTestsAfterStartup();
    return PrintUnitTestSummary();
}
