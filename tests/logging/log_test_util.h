// Helpers of the logging tests: a scripted child host against a private
// product installation, and reading what it logged.
#pragma once

#include <gtest/gtest.h>

#include <regex>

#include "installed_host.h"

namespace logtest {

using kvtest::Lines;

// The text after a line's timestamp (date, time to the millisecond, tab, UTC
// offset) and the separator; "~line" for a line without a valid timestamp.
inline std::string MessageOf(const std::string& line, char separator = ' ') {
    static const std::regex stamp(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\t[+-]\d\d:\d\d)");
    const bool stamped = line.size() > 30 && line[30] == separator && std::regex_match(line.substr(0, 30), stamp);
    return stamped ? line.substr(31) : "~" + line;
}

// The messages of a log file's lines (see MessageOf).
inline Lines Messages(const std::string& path, char separator = ' ') {
    Lines messages;
    for (const auto& line : kvtest::ReadLines(path)) messages.push_back(MessageOf(line, separator));
    return messages;
}

// A rolling log's files in order: the live BASE.log when there is one (a
// log rolls at once when a line fills it), then BASE.001, BASE.002, ... up to
// the first number missing.
inline Lines LogChain(const std::string& folder, const std::string& base) {
    Lines files;
    if (kvtest::FileExists(folder + "\\" + base + ".log")) files.push_back(base + ".log");
    for (size_t n = 1;; ++n) {
        char name[64];
        snprintf(name, sizeof name, "%s.%03zu", base.c_str(), n);
        if (!kvtest::FileExists(folder + "\\" + name)) return files;
        files.push_back(name);
    }
}

// A child host running log_script against its own installation. With
// rollHistory >= 0 the debug log rolls at 1 KB, keeping that many history files.
struct LogHost : kvtest::InstalledHost {
    explicit LogHost(const char* name, int rollHistory = -1) : InstalledHost(name) {
        if (rollHistory < 0) return;
        host.SetSetting("DebugLogSize", 1);
        host.SetSetting("DebugLogHistoryFiles", DWORD(rollHistory));
        CreateDirectoryA(install.logDir().c_str(), nullptr);
    }
    // Runs the operations; fails with the child's output unless it exits with 0.
    ::testing::AssertionResult Ok(Lines ops) { return InstalledHost::Ok("log_script", std::move(ops)); }
    Lines Messages(const std::string& name, char separator = ' ') const {
        return logtest::Messages(File(name), separator);
    }
};

}  // namespace logtest
