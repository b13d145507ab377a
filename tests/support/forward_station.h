// What the tests of kvdiag's log followers share: a station whose logs kvdiag
// forward (or tail -f) follows, and the messages as a collector received them.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"
#include "text_checks.h"

namespace kvtest {

struct Message {
    int priority = 0;
    std::string stamp, host, app, procId, msgId, data, file, text;
    // A structured-data parameter's value as sent (escapes kept).
    std::string Param(const std::string& name) const {
        std::smatch found;
        return std::regex_search(data, found, std::regex(" " + name + R"re(="((?:[^"\\]|\\.)*)")re")) ? found.str(1) : "";
    }
};

// By hand: the library's regex matcher recurses once a character and runs
// out of stack on a long message (a memory report).
inline bool Parse(const std::string& raw, Message& m) {
    std::string fields[6];  // <PRI>1, stamp, host, app, procId, msgId
    size_t at = 0;
    for (std::string& field : fields) {
        const size_t end = raw.find(' ', at);
        if (end == std::string::npos) return false;
        field = raw.substr(at, end - at);
        at = end + 1;
    }
    // The structured data ends at the first "]" outside quotes that no "[" follows.
    size_t end = at;
    for (bool quoted = false; end < raw.size(); ++end) {
        if (raw[end] == '\\') ++end;
        else if (raw[end] == '"') quoted = !quoted;
        else if (!quoted && raw[end] == ']' && (end + 1 == raw.size() || raw[end + 1] != '[')) break;
    }
    if (fields[0][0] != '<' || end >= raw.size()) return false;
    m = {atoi(fields[0].c_str() + 1), fields[1], fields[2], fields[3], fields[4], fields[5],
         raw.substr(at, end + 1 - at), "", end + 2 < raw.size() ? raw.substr(end + 2) : ""};
    m.file = m.Param("file");
    return m.data.compare(0, 13, "[kvlog@32473 ") == 0;
}

// A station: its own product installation whose debug logs roll at sizeKb.
struct Station {
    ProductInstall install;
    TempDir state{"kvfwstate"};
    std::vector<std::unique_ptr<ChildHost>> writers;

    // Starts a writer process running the log_script operations.
    void Write(const Lines& ops, DWORD sizeKb, DWORD history = 10) {
        static int started = 0;
        writers.push_back(std::make_unique<ChildHost>("kvfw" + std::to_string(started++)));
        writers.back()->SetSetting("DebugLogSize", sizeKb);
        writers.back()->SetSetting("DebugLogHistoryFiles", history);
        Lines args{"log_script", install.iniPath()};
        args.insert(args.end(), ops.begin(), ops.end());
        ASSERT_TRUE(writers.back()->Start(args));
    }
    void WaitWriters() {
        for (auto& w : writers) EXPECT_EQ(0u, w->Wait(120000).exitCode);
        writers.clear();
    }
    std::string Forward(const std::string& to, const std::string& more) const {
        return "forward --to " + to + " " + more + " --state \"" + state.path() + "\" --ini \"" + install.iniPath() + "\"";
    }
};

// How often each numbered line "TAG NNNN" of the tags arrived, by tag and number.
inline std::map<char, std::map<int, int>> Tally(const Lines& raw, const std::string& tags) {
    std::map<char, std::map<int, int>> seen;
    for (const std::string& r : raw) {
        Message m;
        if (Parse(r, m) && m.text.size() == 6 && tags.find(m.text[0]) != std::string::npos)
            ++seen[m.text[0]][std::stoi(m.text.substr(2))];
    }
    return seen;
}

}  // namespace kvtest
