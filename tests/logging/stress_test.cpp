// Several processes with several threads share one debug log that rolls many
// times: every line must arrive exactly once, whole, in a chain without holes.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>

#include "log_test_util.h"

using kvtest::ChildHost;
using kvtest::ProductInstall;

TEST(DebugLogStress, ThreeProcessesOfFourThreadsLoseAndTearNoLine) {
    constexpr int kProcesses = 3, kThreads = 4, kLines = 2000;
    ProductInstall install;
    std::vector<std::unique_ptr<ChildHost>> hosts;
    for (int p = 0; p < kProcesses; ++p) {
        hosts.push_back(std::make_unique<ChildHost>("log_stress" + std::to_string(p)));
        // About 1.2 MB in all: some eight rolls of 160 KB, ten history files.
        hosts.back()->SetSetting("DebugLogSize", 160);
        hosts.back()->SetSetting("DebugLogHistoryFiles", 10);
    }
    const DWORD start = GetTickCount();
    for (int p = 0; p < kProcesses; ++p)
        ASSERT_TRUE(hosts[p]->Start({"log_stress", install.iniPath(), "p" + std::to_string(p),
                                     std::to_string(kThreads), std::to_string(kLines)}));
    for (auto& host : hosts) {
        const auto r = host->Wait(300000);
        ASSERT_FALSE(r.timedOut);
        ASSERT_EQ(0u, r.exitCode) << r.output;
    }
    const DWORD elapsed = GetTickCount() - start;

    // The chain: debug.stress.log, then .001, .002, ... with no gap.
    std::vector<std::string> files{"debug.stress.log"};
    for (int i = 1; i <= 10; ++i) {
        char name[32];
        snprintf(name, sizeof name, "debug.stress.%03d", i);
        if (!kvtest::FileExists(install.logDir() + "\\" + name)) break;
        files.push_back(name);
    }
    EXPECT_EQ(files.size(), kvtest::ListFolder(install.logDir(), "debug.stress.*").size()) << "a hole in the chain";

    const std::regex message(R"(p(\d) t(\d) n(\d+))");
    std::map<std::tuple<int, int, int>, int> seen;
    size_t bad = 0, bytes = 0;
    for (const auto& name : files) {
        const std::string text = kvtest::ReadFileText(install.logDir() + "\\" + name);
        bytes += text.size();
        EXPECT_TRUE(text.empty() || text.substr(text.size() - 2) == "\r\n") << name << " ends inside a line";
        for (const auto& line : kvtest::ReadLines(install.logDir() + "\\" + name)) {
            std::smatch m;
            const std::string msg = logtest::MessageOf(line);
            if (!std::regex_match(msg, m, message)) {
                if (++bad < 5) ADD_FAILURE() << "torn line in " << name << ": " << line;
                continue;
            }
            ++seen[{std::stoi(m[1]), std::stoi(m[2]), std::stoi(m[3])}];
        }
    }
    EXPECT_EQ(0u, bad);
    size_t missing = 0, doubled = 0;
    for (int p = 0; p < kProcesses; ++p)
        for (int t = 0; t < kThreads; ++t)
            for (int n = 0; n < kLines; ++n) {
                const auto it = seen.find({p, t, n});
                if (it == seen.end()) ++missing;
                else if (it->second > 1) ++doubled;
            }
    EXPECT_EQ(0u, missing);
    EXPECT_EQ(0u, doubled);
    printf("[ stress   ] %d lines from %d processes x %d threads in %lu ms; %zu files (%zu rolls), %zu bytes\n",
           kProcesses * kThreads * kLines, kProcesses, kThreads, static_cast<unsigned long>(elapsed), files.size(),
           files.size() - 1, bytes);
}
