// The self-check suite in this test process: its checks, the record a host
// adds to, the summary file, and that running it leaves nothing behind.
#include <gtest/gtest.h>

#include "KvDebugHelp.h"
#include "installed_host.h"

namespace {

// Reads the record back through a summary file; each of entries must begin a
// line of it (an entry ending in "\n" is the whole line).
std::string ExpectSummary(std::initializer_list<std::string> entries) {
    kvtest::TempDir dir("selfcheck");
    EXPECT_EQ(0u, PrintUnitTestSummaryToFile((dir / "summary.txt").c_str()));
    std::string text = "\n";
    for (const auto& line : kvtest::ReadLines(dir / "summary.txt")) text += line + "\n";
    for (const auto& entry : entries) EXPECT_NE(std::string::npos, text.find("\n" + entry)) << entry << text;
    return text;
}

}  // namespace

// The startup checks pass; a host's own checks and notes add to their record.
TEST(SelfCheck, StartupAndHostChecksNotesPathsAndErrorCodes) {
    EXPECT_EQ(0, RunKvDebugHelpTests());
    EXPECT_EQ(0, SetLog_ErrorCodes(1));
    EXPECT_EQ(1, log_test("host ok", 1, "fine"));
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(0, log_test("host bad", 0, "refused"));
    EXPECT_EQ(0, call_test("host callback", [](char* reason, uint32_t size) {
                  snprintf(reason, size, "disk full");
                  SetLastError(ERROR_DISK_FULL);
                  return 0;
              }));
    EXPECT_EQ(1, call_test("host callback ok", [](char*, uint32_t) { return 1; }));
    EXPECT_EQ(0, call_test("host null", nullptr));
    Log("shift %d of %s", 2, "night");
    EXPECT_EQ(-2, PrintCurrentPathWithName(""));
    EXPECT_EQ(0u, ExpectSummary({"PASS  settings read - ", "PASS  locks usable - ", "PASS  stack capture - ",
                                 "PASS  symbols resolve - RunKvDebugHelpTests resolved as RunKvDebugHelpTests",
                                 "PASS  host ok - fine", "FAIL  host bad - refused (Win32 error 5)",
                                 "FAIL  host callback - disk full (Win32 error 112)", "PASS  host callback ok",
                                 "FAIL  host null - no check function", "NOTE  shift 2 of night",
                                 "9 checks: 6 passed, 3 failed, 0 skipped\n"})
                      .find("\nKvDebugHelp self-check of test_selfcheck (pid "));
    EXPECT_EQ(3, PrintUnitTestSummary());
    EXPECT_EQ(1, SetLog_ErrorCodes(0));
    EXPECT_EQ(std::string::npos, ExpectSummary({"FAIL  host bad - refused"}).find("Win32 error"));
    EXPECT_EQ(0, RunKvDebugHelpTests()) << "a new run starts a new record";
}

// Runs last in this program: it validates a product INI file for the process.
TEST(SelfCheck, ProductChecksNeedTheIniFileAndLeaveNothingBehind) {
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, PrintUnitTestSummaryToFile(nullptr)) << "no log folder yet";
    EXPECT_EQ(1, RunKvDebugHelpTestsAfterStartup());
    ExpectSummary({"FAIL  product INI file validated - ", "5 checks: 4 passed, 1 failed, 0 skipped\n"});

    kvtest::ProductInstall install;
    SetKorvanIniFilePath(install.iniPath().c_str());
    ASSERT_EQ(1, ValidateKorvanIniFile());
    DbgHlpInfo before{};
    DbgHlpGetInfo(&before);
    EXPECT_EQ(0, RunKvDebugHelpTestsAfterStartup());
    ExpectSummary({"PASS  product INI file validated - " + install.iniPath(),
                   "PASS  folder LOGS writable - " + install.logDir(), "PASS  folder RUN writable - ",
                   "PASS  guarded overrun detected - ", "PASS  light dump written and read back - ",
                   "PASS  debug log writable - " + install.logDir() + "\\debug.log",
                   "PASS  system log writable - " + install.logDir() + "\\syslog.dat"});

    DbgHlpInfo after{};
    DbgHlpGetInfo(&after);
    EXPECT_EQ(before.debugMode, after.debugMode);
    // No private file is left in any folder.
    for (const char* folder : {"Config", "Logs", "Data", "User", "Starter", "User\\Include", "Run"})
        for (const auto& name : kvtest::ListFolder(install.Path(folder), "kv*.tmp")) ADD_FAILURE() << folder << "\\" << name;

    EXPECT_EQ(0u, PrintUnitTestSummaryToFile(nullptr));
    EXPECT_NE(std::string::npos, kvtest::ReadFileText(install.logDir() + "\\KvDebugHelpSelfCheck.txt")
                                     .find("\r\nPASS  light dump written and read back - "));
    EXPECT_EQ(0u, PrintUnitTestSummaryToFile("night.txt"));
    EXPECT_TRUE(kvtest::FileExists(install.logDir() + "\\night.txt"));
    SetKorvanIniFilePath("");
}
