// kvdiag on a live plant: each command that cannot do what was asked refuses
// with rc and reason and leaves the plant's files as they were; help and
// version answer however they are asked.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "kvdiag_runner.h"
#include "product_install.h"
#include "registry_keys.h"
#include "temp_dir.h"

TEST(KvdiagFieldSafety, RefusalsAndHelpAnswerWithExitCodeAndReasonAndLeaveThePlantAlone) {
    kvtest::ProductInstall install;
    const std::string ini = " --ini \"" + install.iniPath() + "\"";
    const std::string logs = install.logDir(), live = logs + "\\debug.Pump.log", held = logs + "\\debug.Held.log";
    CreateDirectoryA(logs.c_str(), nullptr);
    kvtest::WriteFileText(live, "2026-01-01 00:00:00.000\t+00:00 plant line\r\n");
    kvtest::WriteFileText(held, "");
    const std::string liveBefore = kvtest::ReadFileText(live), iniBefore = kvtest::ReadFileText(install.iniPath());
    const HANDLE holder = CreateFileA(held.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    kvtest::TestKey settings(HKEY_CURRENT_USER, "Software\\Korvan\\KvDebugHelp\\kvrefusals");
    kvtest::TempDir state("kvstate");
    kvtest::ExpectKvdiagRuns({
        {"collect \"" + live + "\"" + ini, 1, "exists already (--force replaces it)"},
        {"collect \"" + logs + "\\missing\\x.cab\"" + ini, 1, "cannot be written (error 3: "},
        {"log Pump/7 text" + ini, 2, "is not a component name"},
        {"log ..\\..\\Pump text" + ini, 2, "is not a component name"},
        {"log \"Pump*\" text" + ini, 2, "is not a component name"},
        {"log Held text" + ini, 1, "did not reach"},
        {"tail Nobody" + ini, 1, "no debug log of component \"Nobody\""},
        {"tail Held" + ini, 1, "cannot read " + held + " (error 32"},
        {"settings \"\"", 2, "is not an executable's base name"},
        {"settings C:\\Plant\\", 2, "is not an executable's base name"},
        {"settings kvrefusals LogErrors --remove", 1, "LogErrors is not set for kvrefusals"},
        {"crashtest light --ini \"" + install.Path("Config\\missing.ini") + "\"", 1, "No usable product INI file"},
        {"crashtest heavy --ini \"" + install.iniPath() + std::string(260, ' ') + "\"", 1, "longer than 259"},
        // Commands, options and words answer in any letter case; help lists
        // every option with what it does; wrong arguments exit 2.
        {"help tail", 0, "usage: kvdiag tail [COMPONENT"},
        {"TAIL /?", 0, "--count LINES        with -f: end after LINES new lines"},
        {"/?", 0, "Usage: kvdiag COMMAND"},
        {"help", 0, "Exit codes: 0 done, 1 failed (the reason is printed), 2 wrong arguments"},
        {"", 2, "Exit codes: 0 done"},
        {"nosuch", 2, "unknown command 'nosuch'"},
        {"help nosuch", 2, "unknown command 'nosuch'"},
        {"Settings /?", 0, "NAME --remove"},
        {"VERSION", 0, "kvdiag.exe"},
        {"version extra", 2, "usage: kvdiag version"},
        {"tail --Bogus", 2, "usage: kvdiag tail"},
        {"forward --STATUS --State \"" + state.path() + "\"", 1, "no forwarder has run with the state folder"},
        {"SERVICE Install FORWARD --TO tcp://collector:0", 2, "does not name a host and a port"},
    });
    CloseHandle(holder);
    EXPECT_EQ(liveBefore, kvtest::ReadFileText(live));
    EXPECT_EQ(iniBefore, kvtest::ReadFileText(install.iniPath()));
    EXPECT_EQ(std::vector<std::string>({"debug.Held.log", "debug.Pump.log"}), kvtest::ListFolder(logs));
}

TEST(KvdiagFieldSafety, BothBinariesCarryTheirVersionResource) {
    const std::string version = kvtest::RunKvdiag("version").output;
    EXPECT_EQ(std::string::npos, version.find("no version resource")) << version;
    EXPECT_NE(version.find("8.40.0.487"), version.rfind("8.40.0.487")) << version;
}

// Another program appends to the log while kvdiag's own lines cannot get in:
// the file grows, but kvdiag counts its own lines and reports none arrived.
TEST(KvdiagFieldSafety, LogCountsItsOwnLinesNotTheFileGrowth) {
    kvtest::ProductInstall install;
    CreateDirectoryA(install.logDir().c_str(), nullptr);
    const HANDLE other = CreateFileA((install.logDir() + "\\debug.Busy.log").c_str(), FILE_APPEND_DATA,
                                     FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, other);
    std::atomic<bool> stop{false};
    std::thread appender([&] {
        const std::string line = "2026-01-01 00:00:00.000\t+00:00 " + std::string(990, 'o') + "\r\n";
        for (DWORD written; !stop; Sleep(1)) WriteFile(other, line.data(), DWORD(line.size()), &written, nullptr);
    });
    const auto result = kvtest::RunKvdiag("log Busy \"busy line\" -r 20 --ini \"" + install.iniPath() + "\"");
    stop = true;
    appender.join();
    CloseHandle(other);
    EXPECT_EQ(1u, result.exitCode) << result.output;
    EXPECT_HAS(result.output, "the lines did not reach");
}
