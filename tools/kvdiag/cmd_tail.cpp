// kvdiag tail: the last lines of a debug log and its history files.
#include <windows.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "KvLogging.h"
#include "command.h"
#include "log_files.h"

KVDIAG_COMMAND(tail, "tail [COMPONENT] [-n N]", "last lines of the debug log and its history files") {
    std::vector<std::string> args(argv, argv + argc);
    int count = 10;
    if (!kvdiag::TakeLineCount(args, count) || args.size() > 1) {
        fprintf(stderr, "usage: kvdiag tail [COMPONENT] [-n N]\n");
        return 2;
    }
    if (!kvdiag::UseProductIni()) return 1;
    SetComponentName(args.empty() ? "" : args[0].c_str());
    char live[260];
    if (GetDebugLogFilePath(-1, 1, live, sizeof live) < 0) {
        fprintf(stderr, "kvdiag: the log folder cannot be found or created\n");
        return 1;
    }
    printf("== %s\n", live);
    for (const auto& line : kvdiag::LastLines(live, count)) printf("%s\n", line.c_str());
    printf("== history files\n");
    int found = 0;
    for (int i = 1; i <= 10; ++i) {
        char path[260];
        WIN32_FILE_ATTRIBUTE_DATA data;
        if (GetDebugLogFilePath(i, 1, path, sizeof path) < 0 ||
            !GetFileAttributesExA(path, GetFileExInfoStandard, &data))
            continue;
        printf("  %-40s %10lu bytes\n", path, static_cast<unsigned long>(data.nFileSizeLow));
        ++found;
    }
    if (!found) printf("  (none)\n");
    return 0;
}
