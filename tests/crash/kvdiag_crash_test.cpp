// kvdiag crashtest and dumpinfo run as an engineer would, on a private
// installation.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "product_install.h"
#include "temp_dir.h"

namespace {

struct ToolResult {
    DWORD exitCode = 0;
    std::string output;
};

// Runs kvdiag.exe with the arguments; stdout and stderr together.
ToolResult RunKvdiag(const std::string& arguments) {
    ToolResult result;
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    HANDLE readEnd, writeEnd;
    if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return result;
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = startup.hStdError = writeEnd;
    PROCESS_INFORMATION process{};
    std::string commandLine = "\"" + kvtest::ProgramFolder() + "\\kvdiag.exe\" " + arguments;
    const BOOL started =
        CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    CloseHandle(writeEnd);
    char chunk[4096];
    DWORD got;
    while (started && ReadFile(readEnd, chunk, sizeof chunk, &got, nullptr) && got) result.output.append(chunk, got);
    CloseHandle(readEnd);
    if (!started) return result;
    WaitForSingleObject(process.hProcess, 120000);
    GetExitCodeProcess(process.hProcess, &result.exitCode);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return result;
}

bool Has(const ToolResult& r, const std::string& text) { return r.output.find(text) != std::string::npos; }

}  // namespace

TEST(KvdiagCrash, CrashTestWritesALightDumpThatDumpInfoReads) {
    kvtest::ProductInstall install;
    const std::string ini = " --ini \"" + install.iniPath() + "\"";
    const auto crash = RunKvdiag("crashtest light" + ini);
    ASSERT_EQ(0u, crash.exitCode) << crash.output;
    const std::string dump = install.logDir() + "\\user.dmp";
    EXPECT_TRUE(Has(crash, "Crash test with [Debug]MiniDumpType=1 (for this test only)")) << crash.output;
    EXPECT_TRUE(Has(crash, "Child ended with 0xc0000005")) << crash.output;
    EXPECT_TRUE(Has(crash, "Dump: " + dump + ", ")) << crash.output;
    EXPECT_TRUE(Has(crash, "exception 0xc0000005 in thread ")) << crash.output;
    char type[16] = "";
    GetPrivateProfileStringA("Debug", "MiniDumpType", "absent", type, sizeof type, install.iniPath().c_str());
    EXPECT_STREQ("absent", type) << "the test's dump type is taken back";

    const auto info = RunKvdiag("dumpinfo \"" + dump + "\"");
    EXPECT_EQ(0u, info.exitCode) << info.output;
    EXPECT_TRUE(Has(info, "Exception:      code 0xc0000005 at 0x")) << info.output;
    EXPECT_TRUE(Has(info, "write of address 0x0000000000000010")) << info.output;
    EXPECT_TRUE(Has(info, "Faulting thread: ")) << info.output;
    // Windows marks the modules that stack memory refers to and the light
    // filter keeps those; Wine marks none, so the list may be empty there.
    EXPECT_TRUE(Has(info, "Modules:        ")) << info.output;
    EXPECT_TRUE(Has(info, "Memory:         ")) << info.output;
}

TEST(KvdiagCrash, DumpInfoRefusesWhatIsNotADump) {
    kvtest::TempDir dir("crashinfo");
    kvtest::WriteFileText(dir / "empty.dmp", "");
    kvtest::WriteFileText(dir / "text.dmp", "not a minidump at all, just some text");
    auto result = RunKvdiag("dumpinfo \"" + (dir / "empty.dmp") + "\"");
    EXPECT_EQ(1u, result.exitCode);
    EXPECT_TRUE(Has(result, "Not a minidump (empty file)")) << result.output;
    result = RunKvdiag("dumpinfo \"" + (dir / "text.dmp") + "\"");
    EXPECT_EQ(1u, result.exitCode);
    EXPECT_TRUE(Has(result, "Not a minidump")) << result.output;
}

TEST(KvdiagCrash, CrashTestExceptionShowsTheChainAndItsLogLines) {
    kvtest::ProductInstall install;
    const auto result = RunKvdiag("crashtest exception --ini \"" + install.iniPath() + "\"");
    EXPECT_EQ(0u, result.exitCode) << result.output;
    EXPECT_TRUE(Has(result, "Caught KvException 0x80004005 \"batch start failed\" (batch_starter.cpp:120)"))
        << result.output;
    EXPECT_TRUE(Has(result, "  caused by 0x80070002 \"recipe file missing\" (recipe_loader.cpp:41)"));
    EXPECT_TRUE(Has(result, "KvException objects still alive: 0"));
    EXPECT_TRUE(Has(result, "*** KvException Dump to follow ***")) << result.output;
    EXPECT_TRUE(Has(result, "An error has been detected. \"batch start failed\", error code: 0x80004005"))
        << result.output;
}
