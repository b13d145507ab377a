// Child-host scenario of the self-check suite.
#include "KvDebugHelp.h"
#include "scenario.h"

// INI_PATH: runs every check and prints the summary; exits with the failed count.
KV_SCENARIO(selfcheck_after_startup) {
    if (argc < 1) return 100;
    SetKorvanIniFilePath(argv[0]);
    if (ValidateKorvanIniFile() != 1) return 101;
    RunKvDebugHelpTestsAfterStartup();
    return PrintUnitTestSummary();
}
