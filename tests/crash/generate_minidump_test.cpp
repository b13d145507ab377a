// GenerateMiniDump end to end: child hosts crash with a real access violation
// and their unhandled-exception filter writes the dump; the dump is read back
// and the system log checked.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "child_host.h"
#include "../../tools/kvdiag/dump_reader.h"
#include "product_install.h"
#include "temp_dir.h"

using kvtest::ChildHost;
using DumpFile = kvdiag::MappedDump;
using kvtest::ProductInstall;

namespace {

const char kSkipped[] = "## EXCEPTION ## - Minidump creation was skipped due to [Debug]MiniDumpType setting.";
const char kModeTwo[] =
    "## EXCEPTION ## - 64 bit process does not support [Debug]MiniDumpType = 2 setting, minidump creation has "
    "switched to mode 1.";

class GenerateMiniDumpTest : public ::testing::Test {
protected:
    std::string DumpPath() const { return install.logDir() + "\\user.dmp"; }
    std::vector<std::string> Syslog() const { return kvtest::ReadLines(install.logDir() + "\\syslog.dat"); }
    // Syslog lines (without their timestamp) that start "## EXCEPTION ##".
    std::vector<std::string> ExceptionLines() const {
        std::vector<std::string> found;
        for (const auto& line : Syslog()) {
            const auto at = line.find("## EXCEPTION ## - ");
            if (at != std::string::npos) found.push_back(line.substr(at));
        }
        return found;
    }
    kvtest::HostResult Crash(const std::string& hostName) {
        ChildHost host(hostName);
        return host.Run({"crash_access_violation", install.iniPath()});
    }
    static DWORD ThreadOf(const std::string& output) {
        const auto at = output.find("thread=");
        return at == std::string::npos ? 0 : strtoul(output.c_str() + at + 7, nullptr, 10);
    }

    ProductInstall install;
};

}  // namespace

// Mode 2 falls back to the light dump in a 64-bit process.
TEST_F(GenerateMiniDumpTest, HeavyByDefaultLightForModeTwo) {
    auto result = Crash("crash_dump_heavy");
    ASSERT_EQ(0xC0000005u, result.exitCode) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("filter: dump returned"));
    uint64_t heavySize = 0;
    {
        DumpFile dump(DumpPath().c_str());
        ASSERT_NE(nullptr, dump.base()) << "no heavy dump at " << DumpPath();
        const auto* exception = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
        ASSERT_NE(nullptr, exception);
        EXPECT_EQ(0xC0000005u, exception->ExceptionRecord.ExceptionCode);
        EXPECT_EQ(ThreadOf(result.output), exception->ThreadId);
        EXPECT_EQ(0x10u, exception->ExceptionRecord.ExceptionInformation[1]) << "faulting data address";
        const auto* full = dump.Stream<MINIDUMP_MEMORY64_LIST>(Memory64ListStream);
        ASSERT_NE(nullptr, full) << "a full-memory dump has a 64-bit memory list";
        EXPECT_GT(full->NumberOfMemoryRanges, 0u);
        heavySize = dump.size();
    }
    EXPECT_TRUE(ExceptionLines().empty()) << "a good dump reports nothing";

    install.SetValue("Debug", "MiniDumpType", "2");
    result = Crash("crash_dump_light");
    EXPECT_EQ(std::vector<std::string>{kModeTwo}, ExceptionLines());
    ASSERT_EQ(0xC0000005u, result.exitCode) << result.output;
    DumpFile dump(DumpPath().c_str());
    ASSERT_NE(nullptr, dump.base());
    const auto* exception = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
    ASSERT_NE(nullptr, exception);
    EXPECT_EQ(0xC0000005u, exception->ExceptionRecord.ExceptionCode);
    EXPECT_EQ(ThreadOf(result.output), exception->ThreadId);
    EXPECT_EQ(nullptr, dump.Stream<MINIDUMP_MEMORY64_LIST>(Memory64ListStream));
    EXPECT_LT(dump.size(), heavySize);
}

TEST_F(GenerateMiniDumpTest, ModeZeroOnlyLogsEvenWhenAskedToHang) {
    install.SetValue("Debug", "MiniDumpType", "-1");  // clamped to 0
    install.SetValue("Debug", "HangProcessIfDumpFailed", "1");
    const auto result = Crash("crash_dump_none");
    EXPECT_EQ(0xC0000005u, result.exitCode) << result.output;
    EXPECT_FALSE(result.timedOut);
    EXPECT_FALSE(kvtest::FileExists(DumpPath()));
    EXPECT_EQ(std::vector<std::string>{kSkipped}, ExceptionLines());
}

TEST_F(GenerateMiniDumpTest, BlockedDumpPathReportsModeAndAccessDenied) {
    ASSERT_TRUE(CreateDirectoryA(install.logDir().c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryA(DumpPath().c_str(), nullptr));  // a folder takes the file's name
    auto result = Crash("crash_dump_blocked3");
    EXPECT_EQ(0xC0000005u, result.exitCode) << result.output;
    const std::string failed = "## EXCEPTION ## - Minidump could not be created at \"" + DumpPath() + "\". ";
    EXPECT_EQ(std::vector<std::string>{failed + "DumpType=0x3, HRESULT=0x80070005"}, ExceptionLines());

    install.SetValue("Debug", "MiniDumpType", "2");
    result = Crash("crash_dump_blocked2");
    EXPECT_EQ(0xC0000005u, result.exitCode) << result.output;
    const auto lines = ExceptionLines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(kModeTwo, lines[1]);
    EXPECT_EQ(failed + "DumpType=0x1, HRESULT=0x80070005", lines[2]) << "mode 2 reports itself as mode 1";
}

TEST_F(GenerateMiniDumpTest, NullExceptionPointersLeaveAnEmptyFile) {
    install.SetValue("Debug", "MiniDumpType", "1");
    ChildHost host("crash_dump_nullptrs");
    const auto result = host.Run({"crash_dump_without_exception", install.iniPath()});
    EXPECT_EQ(0u, result.exitCode) << result.output;
    ASSERT_TRUE(kvtest::FileExists(DumpPath()));
    EXPECT_TRUE(kvtest::ReadFileText(DumpPath()).empty());
    const auto lines = ExceptionLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("DumpType=0x1, HRESULT=0x80070057"));
}

TEST_F(GenerateMiniDumpTest, HangOptionKeepsAFailedProcessAlive) {
    ASSERT_TRUE(CreateDirectoryA(install.logDir().c_str(), nullptr));
    ASSERT_TRUE(CreateDirectoryA(DumpPath().c_str(), nullptr));
    install.SetValue("Debug", "HangProcessIfDumpFailed", "1");
    ChildHost host("crash_dump_hang");
    ASSERT_TRUE(host.Start({"crash_access_violation", install.iniPath()}));
    // The failure line comes first; the process must then stay.
    for (int i = 0; i < 300 && ExceptionLines().empty() && host.Running(); ++i) Sleep(100);
    ASSERT_EQ(1u, ExceptionLines().size());
    Sleep(2000);
    EXPECT_TRUE(host.Running()) << "the failed process should wait for a debugger";
    const auto result = host.Wait(100);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(std::string::npos, result.output.find("filter: dump returned")) << result.output;
}
