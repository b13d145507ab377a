// kvdiag paths, ini and init run as an engineer would, on private installations.
#include <gtest/gtest.h>

#include <windows.h>

#include "product_install.h"
#include "temp_dir.h"

namespace {

struct ToolResult {
    DWORD exitCode = 0;
    std::string output;
};

// Runs kvdiag.exe with the arguments and collects stdout and stderr.
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
    const BOOL started = CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                        &startup, &process);
    CloseHandle(writeEnd);
    char chunk[4096];
    DWORD got;
    while (started && ReadFile(readEnd, chunk, sizeof chunk, &got, nullptr) && got) result.output.append(chunk, got);
    CloseHandle(readEnd);
    if (!started) return result;
    WaitForSingleObject(process.hProcess, 60000);
    GetExitCodeProcess(process.hProcess, &result.exitCode);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
    return result;
}

bool Has(const ToolResult& r, const std::string& text) { return r.output.find(text) != std::string::npos; }

}  // namespace

TEST(KvdiagConfig, PathsShowsValidationAndEveryFolder) {
    kvtest::ProductInstall install;
    const auto good = RunKvdiag("paths --ini \"" + install.iniPath() + "\"");
    EXPECT_EQ(0u, good.exitCode) << good.output;
    EXPECT_TRUE(Has(good, "Validated               yes")) << good.output;
    EXPECT_TRUE(Has(good, " 2 LOGS\\Drivers      " + install.logDir() + "\\Drivers")) << good.output;
    EXPECT_TRUE(Has(good, "11 RUN               " + install.Path("Run"))) << good.output;

    const auto missing = RunKvdiag("paths --ini \"" + install.Path("none.ini") + "\"");
    EXPECT_EQ(1u, missing.exitCode);
    EXPECT_TRUE(Has(missing, "Validated               no - missing (error 2)")) << missing.output;
}

TEST(KvdiagConfig, IniReadsValuesAndInitCreatesOnce) {
    kvtest::ProductInstall install;
    install.SetValue("Debug", "MiniDumpType", "2");
    const std::string option = " --ini \"" + install.iniPath() + "\"";
    const auto value = RunKvdiag("ini Debug MiniDumpType" + option);
    EXPECT_EQ(0u, value.exitCode);
    EXPECT_EQ("2", value.output.substr(0, value.output.find_first_of("\r\n")));
    EXPECT_EQ(1u, RunKvdiag("ini Debug Absent" + option).exitCode);
    EXPECT_TRUE(Has(RunKvdiag("ini Debug" + option), "MiniDumpType=2"));

    kvtest::TempDir plant("cfgkvinit");
    CreateDirectoryA((plant / "Config").c_str(), nullptr);
    const std::string fresh = " --ini \"" + plant / "Config\\product.ini" + "\"";
    const auto created = RunKvdiag("init" + fresh);
    EXPECT_EQ(0u, created.exitCode) << created.output;
    EXPECT_TRUE(Has(created, "Logs=" + plant / "Logs")) << created.output;
    EXPECT_TRUE(Has(RunKvdiag("init" + fresh), "exists; left unchanged"));
}
