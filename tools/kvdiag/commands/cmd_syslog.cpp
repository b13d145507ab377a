// kvdiag syslog: the last system-log events.
#include <windows.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "KvLogging.h"
#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"
#include "commands/log_arguments.h"
#include "logs/log_files.h"
#include "logs/product_paths.h"

KVDIAG_COMMAND(syslog, "", "last events of the system log", kvdiag::kLineCountOption, kvdiag::kIniOption) {
    const char* ini = kvdiag::TakeIniOption(argc, argv);
    std::vector<std::string> args(argv, argv + argc);
    int count = 10;
    if (!kvdiag::TakeLineCount(args, count) || !args.empty()) return kvdiag::UsageError();
    const kvdiag::IniStatus status = kvdiag::ValidateProductIni(ini);
    if (!status.valid) {
        fprintf(stderr, "kvdiag: the product INI file is not usable: %s\n", status.reason.c_str());
        return 1;
    }
    char name[260];
    const std::string path = GetSyslogFilePath(0, 0, name, sizeof name) < 0 ? "" : kvdiag::InLogFolder(name);
    if (path.empty()) {
        fprintf(stderr, "kvdiag: the product INI file names no log folder\n");
        return 1;
    }
    printf("== %s\n", path.c_str());
    std::vector<std::string> lines;
    unsigned long error = 0;
    // No log folder yet is no events yet, as no file is.
    const bool read = kvdiag::LastLines(path, count, lines, error);
    if (!read && error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) {
        fprintf(stderr, "kvdiag: cannot read %s (error %lu)\n", path.c_str(), error);
        return 1;
    }
    for (const auto& line : lines) kvdiag::PrintLine(line);
    if (lines.empty()) printf("(no events)\n");
    return 0;
}
