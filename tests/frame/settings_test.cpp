// Per-executable settings: defaults, clamps and conversions, read at attach in
// a child host whose settings key the test prepares.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "child_host.h"

using kvtest::ChildHost;

namespace {

std::map<std::string, long long> ParseSettings(const std::string& output) {
    std::map<std::string, long long> values;
    std::istringstream in(output);
    std::string line;
    while (std::getline(in, line)) {
        const size_t eq = line.find('=');
        if (eq == std::string::npos || line.find(' ') != std::string::npos) continue;
        values[line.substr(0, eq)] = std::stoll(line.substr(eq + 1));
    }
    return values;
}

std::map<std::string, long long> SettingsOf(ChildHost& host) {
    const auto result = host.Run({"print_settings"});
    EXPECT_EQ(0u, result.exitCode) << result.output;
    return ParseSettings(result.output);
}

}  // namespace

TEST(Settings, MissingKeyGivesEveryDefault) {
    ChildHost host("settings_defaults");
    auto s = SettingsOf(host);
    EXPECT_EQ(4194304, s["DebugLogSize"]);
    EXPECT_EQ(1, s["DebugLogHistoryFiles"]);
    EXPECT_EQ(1, s["LogErrors"]);
    EXPECT_EQ(1, s["LogMemSafeCopy"]);
    EXPECT_EQ(0, s["TruncateMemSafeCopy"]);
    EXPECT_EQ(0, s["CrashOnError"]);
    EXPECT_EQ(5, s["HeapCheckRate"]);
    EXPECT_EQ(8, s["StackTraceSize"]);
    EXPECT_EQ(16, s["MemoryBufferSize"]);
    EXPECT_EQ(50, s["HeapCheckInterval"]);
    EXPECT_EQ(0, s["Padding"]);
    // Mode16 values are read only when debug mode 16 is on at attach, which it never is.
    EXPECT_EQ(0, s["Mode16StackDepth"]);
    EXPECT_EQ(0, s["Mode16HighLimit"]);
}

TEST(Settings, ValuesAreClampedAsSignedNumbers) {
    ChildHost low("settings_low");
    low.SetSetting("DebugLogSize", 0);
    low.SetSetting("DebugLogHistoryFiles", DWORD(-3));
    low.SetSetting("MemoryBufferSize", DWORD(-1));
    low.SetSetting("HeapCheckInterval", 1);
    low.SetSetting("HeapCheckRate", 0);
    low.SetSetting("StackTraceSize", 0);
    low.SetSetting("Padding", DWORD(-7));
    auto s = SettingsOf(low);
    EXPECT_EQ(1024, s["DebugLogSize"]);
    EXPECT_EQ(0, s["DebugLogHistoryFiles"]);
    EXPECT_EQ(0, s["MemoryBufferSize"]);
    EXPECT_EQ(5, s["HeapCheckInterval"]);
    EXPECT_EQ(1, s["HeapCheckRate"]);
    EXPECT_EQ(1, s["StackTraceSize"]);
    EXPECT_EQ(0, s["Padding"]);

    ChildHost high("settings_high");
    high.SetSetting("DebugLogSize", 20000);
    high.SetSetting("DebugLogHistoryFiles", 25);
    high.SetSetting("MemoryBufferSize", 600);
    high.SetSetting("HeapCheckInterval", 301);
    high.SetSetting("HeapCheckRate", 61);
    high.SetSetting("StackTraceSize", 41);
    high.SetSetting("Padding", 5000);
    s = SettingsOf(high);
    EXPECT_EQ(10485760, s["DebugLogSize"]);
    EXPECT_EQ(10, s["DebugLogHistoryFiles"]);
    EXPECT_EQ(512, s["MemoryBufferSize"]);
    EXPECT_EQ(300, s["HeapCheckInterval"]);
    EXPECT_EQ(60, s["HeapCheckRate"]);
    EXPECT_EQ(40, s["StackTraceSize"]);
    EXPECT_EQ(1024, s["Padding"]);
}

TEST(Settings, GuardSizeRoundsUpAndFlagsFollowNonZero) {
    ChildHost host("settings_flags");
    host.SetSetting("MemoryBufferSize", 13);
    host.SetSetting("LogErrors", 0);
    host.SetSetting("LogMemSafeCopy", 0);
    host.SetSetting("CrashOnError", 7);
    host.SetSetting("TruncateMemSafeCopy", 0x100);
    host.SetSetting("HeapCheckRate", 9);
    auto s = SettingsOf(host);
    EXPECT_EQ(16, s["MemoryBufferSize"]);
    EXPECT_EQ(0, s["LogErrors"]);
    EXPECT_EQ(0, s["LogMemSafeCopy"]);
    EXPECT_EQ(1, s["CrashOnError"]);
    EXPECT_EQ(1, s["TruncateMemSafeCopy"]);
    const auto result = host.Run({"print_settings"});
    // DbgHlpGetInfo reports the low 16 bits of the mode and of HeapCheckRate.
    EXPECT_NE(std::string::npos, result.output.find("info.debugMode=4660 info.heapCheckRate=9"));
}

TEST(Settings, ExactMultipleOfFourStays) {
    ChildHost host("settings_exact");
    host.SetSetting("MemoryBufferSize", 20);
    EXPECT_EQ(20, SettingsOf(host)["MemoryBufferSize"]);
}
