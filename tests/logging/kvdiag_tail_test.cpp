// kvdiag tail -f run as an engineer would while product processes write.
#include <gtest/gtest.h>

#include <map>

#include "forward_station.h"
#include "kvdiag_process.h"
#include "kvdiag_runner.h"
#include "log_test_util.h"
#include "text_checks.h"

using logtest::MessageOf;

// Two processes write numbered lines into one log that rolls every few dozen
// lines; every line must come out once, in each writer's order, across the rolls.
TEST(KvdiagTail, FollowsTwoWritersAcrossRollsWithoutLossOrRepeat) {
    constexpr int kLines = 150;
    kvtest::Station station;
    const kvtest::ProductInstall& install = station.install;
    CreateDirectoryA(install.logDir().c_str(), nullptr);
    kvtest::KvdiagProcess tail("tail -f Follow -n 0 --count " + std::to_string(2 * kLines) + " --for 20 --ini \"" +
                               install.iniPath() + "\"");
    ASSERT_TRUE(tail.ReadUntil("== following")) << tail.Finish(0).output;
    for (const std::string tag : {"A", "B"})  // two writers rolling at 1 KB
        station.Write({"comp=Follow", "numbered=" + tag + ":" + std::to_string(kLines) + ":5"}, 1);
    station.WaitWriters();
    const kvtest::HostResult result = tail.Finish(90000);
    EXPECT_EQ(0u, result.exitCode) << result.output;
    EXPECT_FALSE(kvtest::OutputHas(result, "may be missing")) << result.output;

    std::map<char, int> next{{'A', 0}, {'B', 0}};
    const std::string& out = result.output;  // the lines after its "== following" header:
    for (const std::string& line : kvtest::SplitLines(out.substr(out.find('\n', out.find("== following")) + 1))) {
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
    for (const std::string step : {"Pump:p1", "Valve:v1", "Pump:p2"})  // a process each
        ASSERT_TRUE(host.Ok({"comp=" + step.substr(0, step.find(':')), "line=" + step.substr(step.find(':') + 1)}));
    const auto result = kvtest::RunKvdiag("tail --all -f -n 5 --for 0.2 --ini \"" + host.install.iniPath() + "\"");
    EXPECT_EQ(0u, result.exitCode) << result.output;
    EXPECT_TRUE(kvtest::InOrder(result.output, {"Pump | ", " p1", "Valve | ", " v1", "Pump | ", " p2", "== following 2 logs"}))
        << result.output;
}

// A damaged log's control characters reach the console escaped, and a huge
// line is cut with its length said, in both ways tail reads (the log named by
// its component, or by its file name).
TEST(KvdiagTail, ControlCharactersAndHugeLinesAreShownSafely) {
    kvtest::ProductInstall install;
    CreateDirectoryA(install.logDir().c_str(), nullptr);
    const std::string stamp = "2026-01-01 00:00:00.000\t+00:00 ";
    kvtest::WriteFileText(install.logDir() + "\\debug.Odd.log",
                          stamp + "clear\x1b[2J\x07 tab\tkept\r\n" + stamp + std::string(20000, 'x') + "\r\n");
    for (const char* way : {"Odd -n 2", "debug.Odd.log -n 2 -f --for 0.2"}) {
        const auto result = kvtest::RunKvdiag(std::string("tail ") + way + " --ini \"" + install.iniPath() + "\"");
        EXPECT_EQ(0u, result.exitCode) << result.output;
        EXPECT_HAS(result.output, "clear\\x1B[2J\\x07 tab\tkept");
        EXPECT_EQ(std::string::npos, result.output.find_first_of("\x1b\x07")) << way;
        EXPECT_HAS(result.output, std::to_string(stamp.size() + 20000 - 8192) + " more bytes)");
    }
}
