// What the forwarding tests share: a station whose logs kvdiag forward
// follows, and the messages as the collector received them.
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
    std::string stamp, host, app, msgId, file, text;
};

// The header by a regular expression, the text (which may be long: the
// library's matcher recurses once a character) by where the header ends.
inline bool Parse(const std::string& raw, Message& m) {
    static const std::regex shape(R"re(<(\d+)>1 (\S+) (\S+) (\S+) - (\S+) \[kvlog@32473 file="([^"]*)"\])re");
    const size_t end = raw.find("\"] ");
    std::smatch f;
    const std::string header = raw.substr(0, end == std::string::npos ? 0 : end + 2);
    if (!std::regex_match(header, f, shape)) return false;
    m = {std::stoi(f[1]), f[2], f[3], f[4], f[5], f[6], raw.substr(end + 3)};
    return true;
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
