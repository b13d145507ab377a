// Helpers of the logging tests: running the scripted child host against a
// private product installation and reading what it logged.
#pragma once

#include <regex>
#include <string>
#include <vector>

#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"

namespace logtest {

// A log line's timestamp: date, time to the millisecond, tab, UTC offset.
inline const std::regex& StampPattern() {
    static const std::regex pattern(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\t[+-]\d\d:\d\d)");
    return pattern;
}

// Runs log_script with the installation's INI file and the operations.
inline kvtest::HostResult RunScript(kvtest::ChildHost& host, const kvtest::ProductInstall& install,
                                    std::vector<std::string> ops) {
    ops.insert(ops.begin(), {"log_script", install.iniPath()});
    return host.Run(ops);
}

// The message of a log line (after the timestamp and its blank); "" when the
// line has no valid timestamp.
inline std::string MessageOf(const std::string& line) {
    std::smatch m;
    if (!std::regex_search(line, m, StampPattern()) || m.position(0) != 0 || line.size() < 31 || line[30] != ' ')
        return "";
    return line.substr(31);
}

}  // namespace logtest
