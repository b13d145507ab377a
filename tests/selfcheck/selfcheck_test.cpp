// The self-check suite in this test process: its checks, the record a host
// adds to, the summary file, and that running it leaves nothing behind.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KvDebugHelp.h"
#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"

namespace {

// The record as the summary file shows it, one entry per line.
std::vector<std::string> Summary() {
    kvtest::TempDir dir("selfcheck");
    const std::string path = dir / "summary.txt";
    EXPECT_EQ(0u, PrintUnitTestSummaryToFile(path.c_str()));
    return kvtest::ReadLines(path);
}

bool HasLine(const std::vector<std::string>& lines, const std::string& start) {
    for (const auto& line : lines)
        if (line.compare(0, start.size(), start) == 0) return true;
    return false;
}

int FailingCheck(char* reason, uint32_t size) {
    snprintf(reason, size, "%s", "disk full");
    SetLastError(ERROR_DISK_FULL);
    return 0;
}

int PassingCheck(char*, uint32_t) { return 1; }

}  // namespace

TEST(SelfCheck, StartupChecksPass) {
    EXPECT_EQ(0, RunKvDebugHelpTests());
    const auto lines = Summary();
    ASSERT_GE(lines.size(), 6u);
    EXPECT_EQ(0u, lines[0].find("KvDebugHelp self-check of test_selfcheck (pid "));
    EXPECT_TRUE(HasLine(lines, "PASS  settings read - "));
    EXPECT_TRUE(HasLine(lines, "PASS  locks usable - "));
    EXPECT_TRUE(HasLine(lines, "PASS  stack capture - "));
    EXPECT_TRUE(HasLine(lines, "PASS  symbols resolve - RunKvDebugHelpTests resolved as RunKvDebugHelpTests"));
    EXPECT_EQ("4 checks: 4 passed, 0 failed, 0 skipped", lines.back());
}

TEST(SelfCheck, HostChecksNotesPathsAndErrorCodes) {
    RunKvDebugHelpTests();
    EXPECT_EQ(0, SetLog_ErrorCodes(1));
    EXPECT_EQ(1, log_test("host ok", 1, "fine"));
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(0, log_test("host bad", 0, "refused"));
    EXPECT_EQ(0, call_test("host callback", FailingCheck));
    EXPECT_EQ(1, call_test("host callback ok", PassingCheck));
    EXPECT_EQ(0, call_test("host null", nullptr));
    Log("shift %d of %s", 2, "night");
    char cwd[MAX_PATH] = "";
    GetCurrentDirectoryA(sizeof cwd, cwd);
    EXPECT_EQ(static_cast<int>(strlen(cwd)), PrintCurrentPath());
    const std::string full = std::string(cwd) + (cwd[strlen(cwd) - 1] == '\\' ? "" : "\\") + "station.ini";
    EXPECT_EQ(static_cast<int>(full.size()), PrintCurrentPathWithName("station.ini"));
    EXPECT_EQ(-2, PrintCurrentPathWithName(""));
    auto lines = Summary();
    EXPECT_TRUE(HasLine(lines, "PASS  host ok - fine"));
    EXPECT_TRUE(HasLine(lines, "FAIL  host bad - refused (Win32 error 5)"));
    EXPECT_TRUE(HasLine(lines, "FAIL  host callback - disk full (Win32 error 112)"));
    EXPECT_TRUE(HasLine(lines, "PASS  host callback ok"));
    EXPECT_TRUE(HasLine(lines, "FAIL  host null - no check function"));
    EXPECT_TRUE(HasLine(lines, "NOTE  shift 2 of night"));
    EXPECT_TRUE(HasLine(lines, std::string("NOTE  current path: ") + cwd));
    EXPECT_TRUE(HasLine(lines, "NOTE  station.ini: " + full));
    EXPECT_EQ("9 checks: 6 passed, 3 failed, 0 skipped", lines.back());
    EXPECT_EQ(3, PrintUnitTestSummary());

    EXPECT_EQ(1, SetLog_ErrorCodes(0));
    lines = Summary();
    EXPECT_TRUE(HasLine(lines, "FAIL  host bad - refused"));
    for (const auto& line : lines) EXPECT_EQ(std::string::npos, line.find("Win32 error")) << line;

    EXPECT_EQ(0, RunKvDebugHelpTests()) << "a new run starts a new record";
}

// Runs last in this program: it validates a product INI file for the process.
TEST(SelfCheck, ProductChecksNeedTheIniFileAndLeaveNothingBehind) {
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, PrintUnitTestSummaryToFile(nullptr)) << "no log folder yet";
    EXPECT_EQ(1, RunKvDebugHelpTestsAfterStartup());
    auto lines = Summary();
    EXPECT_TRUE(HasLine(lines, "FAIL  product INI file validated - "));
    EXPECT_EQ("5 checks: 4 passed, 1 failed, 0 skipped", lines.back()) << "nothing else is tried";

    kvtest::ProductInstall install;
    SetKorvanIniFilePath(install.iniPath().c_str());
    ASSERT_EQ(1, ValidateKorvanIniFile());
    DbgHlpInfo before{};
    DbgHlpGetInfo(&before);
    const int failed = RunKvDebugHelpTestsAfterStartup();
    lines = Summary();
    std::string all;
    for (const auto& line : lines) all += line + "\n";
    EXPECT_TRUE(HasLine(lines, "PASS  product INI file validated - " + install.iniPath())) << all;
    EXPECT_TRUE(HasLine(lines, "PASS  folder LOGS writable - " + install.logDir())) << all;
    EXPECT_TRUE(HasLine(lines, "PASS  folder RUN writable - ")) << all;
    EXPECT_TRUE(HasLine(lines, "PASS  guarded overrun detected - ")) << all;
    EXPECT_TRUE(HasLine(lines, "PASS  light dump written and read back - ")) << all;
    EXPECT_EQ(0, failed) << all;
    EXPECT_TRUE(HasLine(lines, "PASS  debug log writable - " + install.logDir() + "\\debug.log")) << all;
    EXPECT_TRUE(HasLine(lines, "PASS  system log writable - " + install.logDir() + "\\syslog.dat")) << all;

    DbgHlpInfo after{};
    DbgHlpGetInfo(&after);
    EXPECT_EQ(before.debugMode, after.debugMode);
    // No private file is left in any folder.
    for (const char* folder : {"Config", "Logs", "Data", "User", "Starter", "User\\Include", "Run"})
        for (const auto& name : kvtest::ListFolder(install.Path(folder), "kv*.tmp")) ADD_FAILURE() << folder << "\\" << name;

    EXPECT_EQ(0u, PrintUnitTestSummaryToFile(nullptr));
    const auto written = kvtest::ReadFileText(install.logDir() + "\\KvDebugHelpSelfCheck.txt");
    EXPECT_NE(std::string::npos, written.find("\r\nPASS  light dump written and read back - "));
    EXPECT_EQ(0u, PrintUnitTestSummaryToFile("night.txt"));
    EXPECT_TRUE(kvtest::FileExists(install.logDir() + "\\night.txt"));
    SetKorvanIniFilePath("");
}

// With CrashOnError a detected overrun would trap: the check is skipped, and
// the process survives the whole suite.
TEST(SelfCheck, OverrunCheckSkippedWithCrashOnError) {
    kvtest::ProductInstall install;
    kvtest::ChildHost host("crash_selfcheck_trap");
    host.SetSetting("CrashOnError", 1);
    const auto result = host.Run({"selfcheck_after_startup", install.iniPath()});
    EXPECT_EQ(0u, result.exitCode & 0xFFFFFF00u) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("SKIP  guarded overrun detected - CrashOnError is on"))
        << result.output;
}
