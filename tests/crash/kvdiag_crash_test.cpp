// kvdiag crashtest and dumpinfo run as an engineer would, on a private
// installation.
#include <gtest/gtest.h>

#include <string>

#include "kvdiag_runner.h"
#include "product_install.h"
#include "temp_dir.h"

using kvtest::OutputHas;
using kvtest::RunKvdiag;

TEST(KvdiagCrash, CrashTestWritesALightDumpThatDumpInfoReads) {
    kvtest::ProductInstall install;
    const std::string ini = " --ini \"" + install.iniPath() + "\"";
    const auto crash = RunKvdiag("crashtest light" + ini);
    ASSERT_EQ(0u, crash.exitCode) << crash.output;
    const std::string dump = install.logDir() + "\\user.dmp";
    EXPECT_TRUE(OutputHas(crash, "Crash test with [Debug]MiniDumpType=1 (for this test only)")) << crash.output;
    EXPECT_TRUE(OutputHas(crash, "Child ended with 0xc0000005")) << crash.output;
    EXPECT_TRUE(OutputHas(crash, "Dump: " + dump + ", ")) << crash.output;
    EXPECT_TRUE(OutputHas(crash, "exception 0xc0000005 in thread ")) << crash.output;
    char type[16] = "";
    GetPrivateProfileStringA("Debug", "MiniDumpType", "absent", type, sizeof type, install.iniPath().c_str());
    EXPECT_STREQ("absent", type) << "the test's dump type is taken back";

    const auto info = RunKvdiag("dumpinfo \"" + dump + "\"");
    EXPECT_EQ(0u, info.exitCode) << info.output;
    EXPECT_TRUE(OutputHas(info, "Exception:      code 0xc0000005 at 0x")) << info.output;
    EXPECT_TRUE(OutputHas(info, "write of address 0x0000000000000010")) << info.output;
    EXPECT_TRUE(OutputHas(info, "Faulting thread: ")) << info.output;
    // Windows marks the modules that stack memory refers to and the light
    // filter keeps those; Wine marks none, so the list may be empty there.
    EXPECT_TRUE(OutputHas(info, "Modules:        ")) << info.output;
    EXPECT_TRUE(OutputHas(info, "Memory:         ")) << info.output;
}

TEST(KvdiagCrash, DumpInfoRefusesWhatIsNotADump) {
    kvtest::TempDir dir("crashinfo");
    kvtest::WriteFileText(dir / "empty.dmp", "");
    kvtest::WriteFileText(dir / "text.dmp", "not a minidump at all, just some text");
    auto result = RunKvdiag("dumpinfo \"" + (dir / "empty.dmp") + "\"");
    EXPECT_EQ(1u, result.exitCode);
    EXPECT_TRUE(OutputHas(result, "Not a minidump (empty file)")) << result.output;
    result = RunKvdiag("dumpinfo \"" + (dir / "text.dmp") + "\"");
    EXPECT_EQ(1u, result.exitCode);
    EXPECT_TRUE(OutputHas(result, "Not a minidump")) << result.output;
}

TEST(KvdiagCrash, CrashTestExceptionShowsTheChainAndItsLogLines) {
    kvtest::ProductInstall install;
    const auto result = RunKvdiag("crashtest exception --ini \"" + install.iniPath() + "\"");
    EXPECT_EQ(0u, result.exitCode) << result.output;
    EXPECT_TRUE(OutputHas(result, "Caught KvException 0x80004005 \"batch start failed\" (batch_starter.cpp:120)"))
        << result.output;
    EXPECT_TRUE(OutputHas(result, "  caused by 0x80070002 \"recipe file missing\" (recipe_loader.cpp:41)"));
    EXPECT_TRUE(OutputHas(result, "KvException objects still alive: 0"));
    EXPECT_TRUE(OutputHas(result, "*** KvException Dump to follow ***")) << result.output;
    EXPECT_TRUE(OutputHas(result, "An error has been detected. \"batch start failed\", error code: 0x80004005"))
        << result.output;
}
