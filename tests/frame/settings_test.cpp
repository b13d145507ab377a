// Per-executable settings as child hosts resolve them at attach: defaults,
// clamps as signed numbers, rounding and flags. Each column of the table is
// one host whose settings key the test prepares.
#include <gtest/gtest.h>

#include <map>

#include "child_host.h"
#include "kvdiag_runner.h"
#include "text_checks.h"

TEST(Settings, DefaultsClampsAndFlagsAtAttach) {
    constexpr long long kUnset = -99999;  // not written in that host: the default applies
    struct Column { long long written, expected; };
    const struct { const char* name; long long byDefault; Column columns[3]; } rows[] = {
        {"DebugLogSize", 4194304, {{0, 1024}, {20000, 10485760}, {kUnset, 0}}},  // written in KB
        {"DebugLogHistoryFiles", 1, {{-3, 0}, {25, 10}, {kUnset, 0}}},
        {"MemoryBufferSize", 16, {{13, 16}, {600, 512}, {20, 20}}},  // rounded up to a multiple of 4
        {"HeapCheckInterval", 50, {{1, 5}, {301, 300}, {kUnset, 0}}},
        {"HeapCheckRate", 5, {{0, 1}, {61, 60}, {9, 9}}},
        {"StackTraceSize", 8, {{0, 1}, {41, 40}, {kUnset, 0}}},
        {"Padding", 0, {{-7, 0}, {5000, 1024}, {kUnset, 0}}},
        {"LogErrors", 1, {{0, 0}, {kUnset, 0}, {kUnset, 0}}},
        {"LogMemSafeCopy", 1, {{0, 0}, {kUnset, 0}, {kUnset, 0}}},
        {"CrashOnError", 0, {{kUnset, 0}, {7, 1}, {kUnset, 0}}},  // flags follow non-zero
        {"TruncateMemSafeCopy", 0, {{kUnset, 0}, {0x100, 1}, {kUnset, 0}}},
        // Read only when debug mode 16 is on at attach, which it never is.
        {"Mode16StackDepth", 0, {{kUnset, 0}, {kUnset, 0}, {5, 0}}},
        {"Mode16HighLimit", 0, {{kUnset, 0}, {kUnset, 0}, {kUnset, 0}}}};
    const char* hosts[] = {"settings_defaults", "settings_low", "settings_high", "settings_other"};
    for (int h = 0; h < 4; ++h) {
        SCOPED_TRACE(hosts[h]);
        kvtest::ChildHost host(hosts[h]);
        const auto column = [&](const auto& row) { return h ? row.columns[h - 1] : Column{kUnset, 0}; };
        for (const auto& r : rows)
            if (column(r).written != kUnset) host.SetSetting(r.name, DWORD(column(r).written));
        const auto result = host.Run({"print_settings"});
        ASSERT_EQ(0u, result.exitCode) << result.output;
        std::map<std::string, long long> got;
        for (const auto& line : kvtest::SplitLines(result.output))
            if (line.find(' ') == std::string::npos && line.find('=') != std::string::npos)
                got[line.substr(0, line.find('='))] = std::stoll(line.substr(line.find('=') + 1));
        for (const auto& r : rows)
            EXPECT_EQ(column(r).written == kUnset ? r.byDefault : column(r).expected, got[r.name]) << r.name;
        // The mode comes back zero-extended, never sign-extended; DbgHlpGetInfo reports it and HeapCheckRate.
        if (h == 3) { EXPECT_HAS(result.output, "mode=65535 info.debugMode=65535 info.heapCheckRate=9"); }
    }
}

// Set through kvdiag the way an engineer names the program (a path, ".exe"),
// a setting reaches that program at its next start.
TEST(Settings, SetByKvdiagReachesTheNamedProgram) {
    kvtest::ChildHost host("settings_kvdiag");
    const auto set = kvtest::RunKvdiag("settings C:\\Plant\\Bin\\Settings_Kvdiag.EXE DebugLogSize 7");
    ASSERT_EQ(0u, set.exitCode) << set.output;
    EXPECT_HAS(set.output, "DebugLogSize           7 KB           registry (7)");
    EXPECT_HAS(host.Run({"print_settings"}).output, "DebugLogSize=7168");
}
