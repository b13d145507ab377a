// Child-host scenario of the self-check suite.
#include "KvDebugHelp.h"
#include "scenario.h"

// INI_PATH: runs every check and prints the summary; exits with the failed count.
KV_INI_SCENARIO(selfcheck_after_startup) {
    RunKvDebugHelpTestsAfterStartup();
    return PrintUnitTestSummary();
}
