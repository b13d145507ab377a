// Which logs of the log folder the forwarder follows, and what each is to
// the collector: debug logs (by component) with their history files, the
// system log files, the application logs with their archives, and always
// the crash handler's events.
#pragma once

#include <string>
#include <vector>

#include "forward/syslog_message.h"

namespace kvdiag {

struct LogSelection {
    std::vector<std::string> components;  // "" is the debug log without a component
    bool allComponents = false;
    bool system = false;
    bool apps = false;
};

struct FollowedLog {
    LogIdentity identity;  // identity.fileName names the log for its cursor
    std::vector<std::string> chain;  // live file first, then what it rolls into
    bool archives = false;           // an archiving log: its chain is looked up anew (ArchiveChain)
};

// An archiving log's chain: the live file, then its archives newest first,
// "<name>.bak" or, with [Debug] SysLogArchive=1, "<name>_yymmdd_hhmmss .<ext>"
// (a new name at each archiving).
std::vector<std::string> ArchiveChain(const std::string& live);

// The logs the selection names, as they are in the log folder now (folder
// scans find the components, system logs and application logs there).
std::vector<FollowedLog> SelectLogs(const LogSelection& selection);

}  // namespace kvdiag
