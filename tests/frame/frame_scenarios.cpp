// Child-host scenarios of the library frame.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "KvDebugHelp.h"
#include "scenario.h"

// Prints every setting as the library resolved it at attach: name=value.
KV_SCENARIO(print_settings) {
    DbgHlpSettingInfo rows[32];
    const int n = DbgHlpDescribeSettings(nullptr, rows, 32);
    for (int i = 0; i < n; ++i) printf("%s=%lld\n", rows[i].name, static_cast<long long>(rows[i].value));
    DbgHlpInfo info{};
    const uint32_t mode = DbgHlpSetDebugMode(0xFFFF);
    DbgHlpGetInfo(&info);
    DbgHlpSetDebugMode(0);
    printf("mode=%u info.debugMode=%u info.heapCheckRate=%u\n", mode, info.debugMode, info.heapCheckRate);
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

// Sets the identity and command-line texts, then makes the library print them:
// a memory error report carries IdString, the memory report CommandLine.
// Arguments: INI path, length of the identity text.
KV_INI_SCENARIO(identity_in_reports) {
    if (argc < 2) return 2;
    std::string id(size_t(atoi(argv[1])), 'i');
    id.back() = 'Z';  // the last character shows whether the text was cut
    DbgHlpSetIdStr(id.c_str());
    DbgHlpSetIdStr(nullptr);  // ignored
    const int first = DbgHlpSetCmdLine("ab");
    const int second = DbgHlpSetCmdLine("cd");
    printf("cmdline %d %d\n", first, second);
    DbgHlpSetDebugMode(1);
    char notFromTheAllocator[64] = {};
    osMemFree(notFromTheAllocator + 32);
    DbgHlpSetDebugMode(0);
    DbgMemHeapReport(0, 0xFFFFFFFFu, 0);
    return 0;
}
