// kvdiag crashtest and dumpinfo run as an engineer would, on a private
// installation; checked whatever the widths of kvdiag's columns.
#include <gtest/gtest.h>

#include "dump/dump_reader.h"
#include "kvdiag_runner.h"
#include "product_install.h"
#include "temp_dir.h"

// The crash, its dump and its setting happen in a scratch copy: the plant's
// own dump and INI file stay byte for byte as they were, and the scratch
// copy holds a light dump of the access violation.
TEST(KvdiagCrash, CrashTestWritesALightDumpInAScratchCopy) {
    kvtest::ProductInstall install;
    CreateDirectoryA(install.logDir().c_str(), nullptr);
    const std::string plantDump = install.logDir() + "\\user.dmp";
    kvtest::WriteFileText(plantDump, "the plant's own crash dump");
    const std::string iniBefore = kvtest::ReadFileText(install.iniPath());
    const auto result = kvtest::RunKvdiag("crashtest light --ini \"" + install.iniPath() + "\"");
    EXPECT_EQ(0u, result.exitCode) << result.output;
    EXPECT_EQ("the plant's own crash dump", kvtest::ReadFileText(plantDump));
    EXPECT_EQ(iniBefore, kvtest::ReadFileText(install.iniPath()));
    EXPECT_EQ(std::vector<std::string>{"user.dmp"}, kvtest::ListFolder(install.logDir()));
    // The dump is in the scratch copy, which is the test's to remove.
    const size_t from = result.output.find("Scratch installation: ") + 22;
    const std::string scratch = result.output.substr(from, result.output.find(" (a copy", from) - from);
    ASSERT_NE(std::string::npos, scratch.find("kvdiag-crashtest-")) << result.output;
    {
        kvdiag::MappedDump dump((scratch + "\\Logs\\user.dmp").c_str());
        const auto* exception = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
        ASSERT_NE(nullptr, exception) << result.output;
        EXPECT_EQ(DWORD(EXCEPTION_ACCESS_VIOLATION), exception->ExceptionRecord.ExceptionCode);
        EXPECT_EQ(0u, dump.FullMemory().ranges.count) << "a light dump";
    }
    kvtest::RemoveTree(scratch);
}

TEST(KvdiagCrash, DumpInfoRefusesWhatIsNotADump) {
    kvtest::TempDir dir("crashinfo");
    kvtest::WriteFileText(dir / "empty.dmp", "");
    kvtest::WriteFileText(dir / "text.dmp", "not a minidump at all, just some text");
    kvtest::ExpectKvdiagRuns({{"dumpinfo \"" + dir / "empty.dmp\"", 1, "Not a minidump (empty file)"},
                              {"dumpinfo \"" + dir / "text.dmp\"", 1, "Not a minidump"}});
}

// Each run leaves its scratch copy (a heavy one holds a full dump): a new run
// removes all but the newest two of that command, never one whose kvdiag
// still runs, and nothing it did not name itself. The exception test shows
// the library's rendering of a chained KvException and frees every object.
TEST(KvdiagCrash, ExceptionTestKeepsOnlyTheNewestScratchCopies) {
    kvtest::TempDir temp("kvscratch");
    const std::string alive = "kvdiag-crashtest-20190101-000000-" + std::to_string(GetCurrentProcessId());
    const std::vector<std::string> names = {"kvdiag-crashtest-20200101-000000-1", "kvdiag-crashtest-20200102-000000-1",
                                            "kvdiag-crashtest-20200103-000000-1", "kvdiag-crashtest-20200104-000000-1",
                                            "kvdiag-crashtest-notes", "kvdiag-selfcheck-20200101-000000-1", alive};
    for (const std::string& name : names) CreateDirectoryA((temp / name).c_str(), nullptr);
    kvtest::WriteFileText(temp / "kvdiag-crashtest-20200101-000000-1\\user.dmp", "old dump");
    kvtest::ProductInstall install;
    const auto run = kvtest::RunKvdiag("crashtest exception --ini \"" + install.iniPath() + "\"", {{"TMP", temp.path()}});
    EXPECT_EQ(0u, run.exitCode) << run.output;
    for (const char* text : {"Removed 2 older scratch installations of kvdiag crashtest",
                             " caused by 0x80070002 \"recipe file missing\" (recipe_loader.cpp:41)",
                             "KvException objects still alive: 0"})
        EXPECT_HAS(kvtest::Squeezed(run.output), text);
    std::vector<std::string> left = kvtest::ListFolder(temp.path(), "kvdiag-*");
    std::sort(left.begin(), left.end());
    ASSERT_EQ(6u, left.size());
    EXPECT_EQ((std::vector<std::string>{alive, names[2], names[3]}), std::vector<std::string>(left.begin(), left.begin() + 3));
    EXPECT_EQ(0u, left[3].rfind("kvdiag-crashtest-20", 0)) << "this run's own copy";
    EXPECT_EQ((std::vector<std::string>{names[4], names[5]}), std::vector<std::string>(left.begin() + 4, left.end()));
}
