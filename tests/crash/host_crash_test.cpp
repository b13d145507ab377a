// Crash diagnostics in child hosts: dumps written by an unhandled-exception
// filter on a real access violation, and the log lines of a KvException chain.
#include <gtest/gtest.h>

#include "dump/dump_reader.h"
#include "installed_host.h"

// The lines of a log file that contain marker, each from it on.
static std::vector<std::string> LinesFrom(const std::string& file, const std::string& marker) {
    std::vector<std::string> found;
    for (const auto& line : kvtest::ReadLines(file))
        if (line.find(marker) != std::string::npos) found.push_back(line.substr(line.find(marker)));
    return found;
}

// Reads the dump back: its size, or 0 when it is no dump of this crash.
static uint64_t CrashDumpSize(const std::string& path, const std::string& output, bool fullMemory) {
    kvdiag::MappedDump dump(path.c_str());
    const auto* exception = dump.base() ? dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream) : nullptr;
    EXPECT_NE(nullptr, exception) << "no dump with an exception at " << path;
    if (!exception) return 0;
    EXPECT_EQ(0xC0000005u, exception->ExceptionRecord.ExceptionCode);
    EXPECT_EQ(0x10u, exception->ExceptionRecord.ExceptionInformation[1]) << "faulting data address";
    EXPECT_EQ(kvtest::NumberAfter(output, "thread="), exception->ThreadId);
    const auto* full = dump.Stream<MINIDUMP_MEMORY64_LIST>(Memory64ListStream);
    EXPECT_EQ(fullMemory, full != nullptr && full->NumberOfMemoryRanges > 0);
    return dump.size();
}

TEST(GenerateMiniDump, DumpOrReportByMode) {
    kvtest::ProductInstall install;
    const std::string path = install.logDir() + "\\user.dmp", syslog = install.logDir() + "\\syslog.dat";
    const std::string modeTwo = "## EXCEPTION ## - 64 bit process does not support [Debug]MiniDumpType = 2 "
                                "setting, minidump creation has switched to mode 1.";
    const std::string failed = "## EXCEPTION ## - Minidump could not be created at \"" + path + "\". DumpType=0x";
    enum Dump { kNone, kEmpty, kLight, kFull };
    const struct {
        const char *host, *type;  // type nullptr: the default (heavy)
        bool blocked, hang;       // blocked: a folder takes the dump file's name
        std::vector<std::string> lines;
        Dump dump;  // kEmpty: GenerateMiniDump(nullptr) without a crash
        const char* scenario = "crash_access_violation";
    } cases[] = {
        {"crash_dump_heavy", nullptr, false, true, {}, kFull},
        {"crash_dump_light", "2", false, true, {modeTwo}, kLight},  // no mode 2 in 64 bits
        {"crash_dump_none", "-1", false, true,  // clamped to 0
         {"## EXCEPTION ## - Minidump creation was skipped due to [Debug]MiniDumpType setting."}, kNone},
        {"crash_dump_blocked2", "2", true, false, {modeTwo, failed + "1, HRESULT=0x80070005"}, kNone},
        // A failed dump with the hang option waits for a debugger: killed after the timeout.
        {"crash_dump_hang", "3", true, true, {failed + "3, HRESULT=0x80070005"}, kNone},
        {"crash_dump_nullptrs", "1", false, false, {failed + "1, HRESULT=0x80070057"}, kEmpty},
        // A thread holds IniFileLock at the crash: the filter dumps with the
        // defaults into the last known log folder, says so, and the process ends
        // (a hung filter would be killed with 0xDEAD).
        {"crash_ini_locked", "1", false, false,
         {"## EXCEPTION ## - Minidump created at \"" + path + "\" with fallback: IniFileLock held: MiniDumpType 3, "
          "last known log folder."},
         kFull, "crash_ini_locked"},
    };
    uint64_t heavySize = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.host);
        DeleteFileA(syslog.c_str());
        DeleteFileA(path.c_str());
        RemoveDirectoryA(path.c_str());
        ASSERT_TRUE(!c.blocked || CreateDirectoryA(path.c_str(), nullptr));
        if (c.type) install.SetValue("Debug", "MiniDumpType", c.type);
        install.SetValue("Debug", "HangProcessIfDumpFailed", c.hang ? "1" : "0");
        std::vector<std::string> args = {c.scenario, install.iniPath()};
        if (c.dump == kEmpty) args.push_back("nullptrs");
        const bool hangs = c.hang && c.blocked;  // only a process whose dump failed may hang
        // A full dump written in the process takes minutes on a loaded machine.
        const auto result = kvtest::ChildHost(c.host).Run(args, hangs ? 15000 : 300000);
        EXPECT_EQ(hangs, result.timedOut);
        EXPECT_TRUE(hangs || result.exitCode == (c.dump == kEmpty ? 0u : 0xC0000005u)) << result.output;
        EXPECT_EQ(!hangs && c.dump != kEmpty, result.output.find("filter: dump returned") != std::string::npos);
        EXPECT_EQ(c.lines, LinesFrom(syslog, "## EXCEPTION ## - "));
        EXPECT_EQ(c.dump != kNone, !c.blocked && kvtest::FileExists(path));
        EXPECT_TRUE(c.dump != kEmpty || kvtest::ReadFileText(path).empty());
        if (c.dump < kLight) continue;
        const uint64_t size = CrashDumpSize(path, result.output, c.dump == kFull);
        if (c.dump == kFull) heavySize = size;
        else EXPECT_LT(size, heavySize);
    }
}

// The first of a chain and the dummy open with the banner; the second does not.
TEST(KvExceptionLog, ChainAndDummyExceptionOutput) {
    kvtest::InstalledHost h("crash_exception_log");
    ASSERT_TRUE(h.Ok("crash_exception_chain"));
    EXPECT_HAS(h.last.output, "live=0");
    const std::string log = h.Log();
    EXPECT_TRUE(kvtest::InOrder(log, {"*** KvException Dump to follow ***",
                                      "description:\"file missing\" error=0x80070002 (loader.cpp:0041)",
                                      "description:\"load failed\" error=0x80004005 (starter.cpp:0007)",
                                      "*** KvException Dump to follow ***",
                                      "description:\"this is a dummy exception\" error=0xc0000010 (KvException:0125)"}))
        << log;
    EXPECT_EQ(2u, kvtest::Count(log, "*** KvException Dump to follow ***")) << log;
    EXPECT_EQ(3u, kvtest::Count(log, "KvException : pid=")) << log;
    const auto notices = LinesFrom(h.File("syslog.dat"), "An error has been detected.");
    ASSERT_EQ(3u, notices.size());
    EXPECT_EQ(0u, notices[2].find("An error has been detected. \"this is a dummy exception\", error code: 0xc0000010"));
}

// Every dump and capture starts at the host function that called the export,
// whatever the compiler made of the calls inside the library.
TEST(FirstFrame, IsTheHostFunctionThatCalledTheExport) {
    kvtest::InstalledHost h("crash_first_frames");
    ASSERT_TRUE(h.Ok("first_frames"));
    for (const char* entry : {"MemSafeCopy", "KvMemSafeCopy", "MemSafeMove", "MemSafeSet", "osMemFree", "KvException",
                              "LogInstrumentedAndKvcodeCallStacks"})
        EXPECT_HAS(h.last.output, "first frames of " + std::string(entry) + ": ok");
}
