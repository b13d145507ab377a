// kvdiag tail -f run as an engineer would while product processes write.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "kvdiag_process.h"
#include "kvdiag_runner.h"
#include "log_test_util.h"

using logtest::Lines;
using logtest::MessageOf;

namespace {

// The lines of tail's output after its "== following" header.
Lines FollowedLines(const std::string& output) {
    Lines lines;
    std::istringstream in(output.substr(output.find('\n', output.find("== following")) + 1));
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

// Two processes write numbered lines into one log that rolls every few dozen
// lines; every line must come out once, in each writer's order, across the rolls.
TEST(KvdiagTail, FollowsTwoWritersAcrossRollsWithoutLossOrRepeat) {
    constexpr int kLines = 150;
    kvtest::ProductInstall install;
    CreateDirectoryA(install.logDir().c_str(), nullptr);
    kvtest::ChildHost writerA("kvtailwa"), writerB("kvtailwb");
    for (kvtest::ChildHost* host : {&writerA, &writerB}) {
        host->SetSetting("DebugLogSize", 1);
        host->SetSetting("DebugLogHistoryFiles", 10);
    }
    kvtest::KvdiagProcess tail("tail -f Follow -n 0 --count " + std::to_string(2 * kLines) + " --for 20 --ini \"" +
                               install.iniPath() + "\"");
    ASSERT_TRUE(tail.ReadUntil("== following")) << tail.Finish(0).output;
    const std::string count = std::to_string(kLines);
    ASSERT_TRUE(writerA.Start({"log_script", install.iniPath(), "comp=Follow", "numbered=A:" + count}));
    ASSERT_TRUE(writerB.Start({"log_script", install.iniPath(), "comp=Follow", "numbered=B:" + count}));
    EXPECT_EQ(0u, writerA.Wait(60000).exitCode);
    EXPECT_EQ(0u, writerB.Wait(60000).exitCode);
    const kvtest::HostResult result = tail.Finish(90000);
    EXPECT_EQ(0u, result.exitCode) << result.output;
    EXPECT_FALSE(kvtest::OutputHas(result, "may be missing")) << result.output;

    std::map<char, int> next{{'A', 0}, {'B', 0}};
    const Lines followed = FollowedLines(result.output);
    for (const std::string& line : followed) {
        const std::string message = MessageOf(line);
        char expected[16];
        snprintf(expected, sizeof expected, "%c %04d", message[0], next[message[0]]++);
        ASSERT_EQ(expected, message) << result.output;
    }
    EXPECT_EQ(kLines, next['A']) << result.output;
    EXPECT_EQ(kLines, next['B']) << result.output;
    EXPECT_GE(kvtest::ListFolder(install.logDir(), "debug.Follow.0*").size(), 5u);  // it did roll, many times
}

// --all merges the logs of every component by time, each line marked with its component.
TEST(KvdiagTail, AllMergesComponentsByTime) {
    logtest::LogHost host("kvtailall");
    for (const char* step : {"Pump:p1", "Valve:v1", "Pump:p2"}) {
        const std::string s = step;
        ASSERT_TRUE(host.Ok({"comp=" + s.substr(0, s.find(':')), "line=" + s.substr(s.find(':') + 1)}));
    }
    const auto result = kvtest::RunKvdiag("tail --all -f -n 5 --for 0.2 --ini \"" + host.install.iniPath() + "\"");
    EXPECT_EQ(0u, result.exitCode) << result.output;
    EXPECT_TRUE(kvtest::InOrder(result.output, {"Pump | ", " p1", "Valve | ", " v1", "Pump | ", " p2", "== following 2 logs"}))
        << result.output;
}
