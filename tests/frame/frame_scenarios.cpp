// Child-host scenarios of the library frame.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>

#include "KvDebugHelp.h"
#include "scenario.h"

// Prints every setting as the library resolved it at attach: name=value.
KV_SCENARIO(print_settings) {
    DbgHlpSettingInfo rows[32];
    const int n = DbgHlpDescribeSettings(nullptr, rows, 32);
    for (int i = 0; i < n; ++i) printf("%s=%lld\n", rows[i].name, static_cast<long long>(rows[i].value));
    DbgHlpInfo info{};
    DbgHlpSetDebugMode(0x1234);
    DbgHlpGetInfo(&info);
    printf("info.debugMode=%u info.heapCheckRate=%u\n", info.debugMode, info.heapCheckRate);
    return 0;
}

KV_SCENARIO(please_crash) {
    printf("about to divide\n");
    const unsigned r = DbgPleaseCrash();
    printf("survived %u\n", r);  // never reached
    return 0;
}

KV_SCENARIO(crash_but_catch) {
    DbgCrashButCatch();
    DbgCrashButCatch();
    printf("caught twice\n");
    return 7;
}

KV_SCENARIO(display_error) {
    DbgHlpDisplayError();
    printf("no trap\n");
    return 0;
}
