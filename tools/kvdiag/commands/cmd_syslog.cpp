// kvdiag syslog: the last events of the system logs. Each program with a
// component name writes syslog.<component>.dat, others share syslog.dat;
// without a component every system log of the log folder is shown.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"
#include "commands/log_arguments.h"
#include "logs/log_files.h"
#include "logs/product_paths.h"
#include "platform/folder_listing.h"

namespace {

// The system logs of the log folder by file name: "syslog.dat" and "syslog.<component>.dat".
std::vector<std::string> SystemLogs(const std::string& folder) {
    std::vector<std::string> names;
    std::vector<kv::platform::FolderEntry> entries;
    kv::platform::ListFolder(folder, "syslog*.dat", entries);
    for (const auto& entry : entries)
        if (!entry.IsFolder() &&
            (_stricmp(entry.name.c_str(), "syslog.dat") == 0 || _strnicmp(entry.name.c_str(), "syslog.", 7) == 0))
            names.push_back(entry.name);
    std::sort(names.begin(), names.end());
    return names;
}

// Prints the last count events of one file; false when it cannot be read.
bool PrintEvents(const std::string& path, int count) {
    std::vector<std::string> lines;
    if (const kvdiag::Failure failure = kvdiag::LastLines(path, count, lines)) {
        kvdiag::ReportFailure(failure);
        return false;
    }
    kvdiag::PrintLine(path, "== ");
    for (const auto& line : lines) kvdiag::PrintLine(line);
    if (lines.empty()) printf("(empty)\n");
    return true;
}

}  // namespace

KVDIAG_COMMAND(syslog, "[COMPONENT|--all]", "last events of a component's system log, or of every system log",
               {"--all", nullptr, "every system log in the log folder (also without COMPONENT)"},
               kvdiag::kLineCountOption, kvdiag::kIniOption) {
    const char* ini = kvdiag::TakeIniOption(argc, argv);
    std::vector<std::string> args(argv, argv + argc);
    int count = 10;
    if (!kvdiag::TakeLineCount(args, count) || args.size() > 1 ||
        (args.size() == 1 && args[0][0] == '-' && args[0] != "--all"))
        return kvdiag::UsageError();
    const bool one = args.size() == 1 && args[0] != "--all";
    if (one && !kvdiag::CheckComponentName(args[0])) return 2;
    const kvdiag::IniStatus status = kvdiag::ValidateProductIni(ini);
    if (!status.valid) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("the product INI file is not usable: %s", status.reason.c_str()));
        return 1;
    }
    std::string folder;
    if (!kvdiag::LogFolder(folder)) {
        kvdiag::ReportFailure(kvdiag::Failure("the product INI file names no log folder"));
        return 1;
    }
    if (one) {
        const std::string path = folder + "\\syslog." + args[0] + ".dat";
        if (GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
            kvdiag::ReportFailure(kvdiag::Failure::Printf("no system log of component \"%s\": %s does not exist", args[0].c_str(),
                    path.c_str()));
            return 1;
        }
        return PrintEvents(path, count) ? 0 : 1;
    }
    const std::vector<std::string> names = SystemLogs(folder);
    if (names.empty()) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("no system log in %s (no program has written one yet)", folder.c_str()));
        return 1;
    }
    int rc = 0;
    for (size_t i = 0; i < names.size(); ++i) {
        if (i) printf("\n");
        if (!PrintEvents(folder + "\\" + names[i], count)) rc = 1;
    }
    return rc;
}
