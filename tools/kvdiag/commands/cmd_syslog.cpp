// kvdiag syslog: the last system-log events.
#include <windows.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "KvLogging.h"
#include "command.h"
#include "logs/log_files.h"

KVDIAG_COMMAND(syslog, "syslog [-n N]", "last events of the system log") {
    std::vector<std::string> args(argv, argv + argc);
    int count = 10;
    if (!kvdiag::TakeLineCount(args, count) || !args.empty()) {
        fprintf(stderr, "usage: kvdiag syslog [-n N]\n");
        return 2;
    }
    if (!kvdiag::UseProductIni()) return 1;
    char path[260];
    if (GetSyslogFilePath(1, 0, path, sizeof path) < 0) {
        fprintf(stderr, "kvdiag: the log folder cannot be found or created\n");
        return 1;
    }
    printf("== %s\n", path);
    std::vector<std::string> lines;
    unsigned long error = 0;
    if (!kvdiag::LastLines(path, count, lines, error) && error != ERROR_FILE_NOT_FOUND) {
        fprintf(stderr, "kvdiag: cannot read %s (error %lu)\n", path, error);
        return 1;
    }
    for (const auto& line : lines) printf("%s\n", line.c_str());
    if (lines.empty()) printf("(no events)\n");
    return 0;
}
