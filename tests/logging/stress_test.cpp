// Several processes with several threads share one debug log that rolls many
// times: every line must arrive exactly once, whole, in a chain without holes.
// The last process names the log folder by another path (as a process of
// another session or account may), so only locks tied to the file itself keep
// the writers apart. Processes whose limits differ see each other's rolls.
#include <gtest/gtest.h>

#include <map>

#include "log_test_util.h"

namespace {

void ShareOneRollingLog(const int (&limitKb)[3]) {
    constexpr int kProcesses = 3, kThreads = 4, kLines = 2000;
    kvtest::ProductInstall install;
    std::vector<std::unique_ptr<kvtest::ChildHost>> hosts;
    const DWORD start = GetTickCount();
    for (int p = 0; p < kProcesses; ++p) {
        hosts.push_back(std::make_unique<kvtest::ChildHost>("log_stress" + std::to_string(p)));
        // About 1.2 MB in all: some eight rolls of 160 KB, ten history files.
        if (limitKb[p]) hosts.back()->SetSetting("DebugLogSize", DWORD(limitKb[p]));
        hosts.back()->SetSetting("DebugLogHistoryFiles", 10);
    }
    const std::string aliasIni = install.Path("Config\\alias.ini");
    ASSERT_TRUE(CopyFileA(install.iniPath().c_str(), aliasIni.c_str(), FALSE));
    WritePrivateProfileStringA("KVEDIT", "LOGS", (install.root() + "\\.\\Logs").c_str(), aliasIni.c_str());
    for (int p = 0; p < kProcesses; ++p)
        ASSERT_TRUE(hosts[p]->Start({"log_stress", p == kProcesses - 1 ? aliasIni : install.iniPath(),
                                     "p" + std::to_string(p), std::to_string(kThreads), std::to_string(kLines)}));
    for (auto& host : hosts) {
        const auto r = host->Wait(300000);
        ASSERT_TRUE(!r.timedOut && r.exitCode == 0) << r.exitCode << r.output;
    }
    const DWORD elapsed = GetTickCount() - start;

    const kvtest::Lines files = logtest::LogChain(install.logDir(), "debug.stress");
    EXPECT_EQ(files.size(), kvtest::ListFolder(install.logDir(), "debug.stress.*").size()) << "a hole in the chain";

    std::map<std::string, int> seen;  // message -> how often it arrived
    size_t bytes = 0;
    for (const auto& name : files) {
        const std::string text = kvtest::ReadFileText(install.logDir() + "\\" + name);
        bytes += text.size();
        EXPECT_TRUE(text.empty() || text.substr(text.size() - 2) == "\r\n") << name << " ends inside a line";
        for (const auto& line : kvtest::ReadLines(install.logDir() + "\\" + name)) ++seen[logtest::MessageOf(line)];
    }
    size_t missing = 0, doubled = 0;
    for (int p = 0; p < kProcesses; ++p)
        for (int t = 0; t < kThreads; ++t)
            for (int n = 0; n < kLines; ++n) {
                const auto it = seen.find("p" + std::to_string(p) + " t" + std::to_string(t) + " n" + std::to_string(n));
                if (it == seen.end()) ++missing;
                else doubled += it->second > 1, seen.erase(it);
            }
    EXPECT_EQ(0u, missing + doubled) << missing << " lines missing, " << doubled << " doubled";
    EXPECT_TRUE(seen.empty()) << seen.size() << " torn or foreign lines, such as " << seen.begin()->first;
    printf("[ stress   ] %d lines from %d processes x %d threads in %lu ms; %zu files, %zu bytes\n",
           kProcesses * kThreads * kLines, kProcesses, kThreads, static_cast<unsigned long>(elapsed), files.size(), bytes);
}

}  // namespace

TEST(DebugLogStress, ThreeProcessesOfFourThreadsLoseAndTearNoLine) {
    // Each process's limit in KB; 0: its own limit is never reached (4 MB).
    const int limits[][3] = {{160, 160, 160}, {160, 0, 320}};
    for (const auto& limit : limits) {
        SCOPED_TRACE(std::to_string(limit[1]) + " KB for the second");
        ShareOneRollingLog(limit);
    }
}

// Sixteen threads' batches fill a 1 KB log many times: the file takes lines
// up to the one that reaches the limit, the rest of a batch starts the next.
TEST(DebugLogStress, NoHistoryFileExceedsTheLimitByMoreThanALine) {
    kvtest::ProductInstall install;
    kvtest::ChildHost host("log_split");
    host.SetSetting("DebugLogSize", 1);
    host.SetSetting("DebugLogHistoryFiles", 10);
    const auto r = host.Run({"log_stress", install.iniPath(), "split", "16", "200"});
    ASSERT_TRUE(!r.timedOut && r.exitCode == 0) << r.output;
    const auto history = kvtest::ListFolder(install.logDir(), "debug.stress.0*");
    EXPECT_EQ(10u, history.size());
    for (const auto& name : history) {
        const std::string path = install.logDir() + "\\" + name;
        size_t longest = 0;
        for (const auto& line : kvtest::ReadLines(path)) longest = std::max(longest, line.size() + 2);
        EXPECT_LE(kvtest::ReadFileText(path).size(), 1024 + longest) << name;
    }
}
