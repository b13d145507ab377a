// The crash handler end to end: hosts register and crash the hard ways, the
// handler writes their dumps from outside, and kvdiag reads them back; kvdiag
// dump on a deadlocked host.
#include <gtest/gtest.h>

#include "dump/dump_reader.h"
#include "installed_host.h"
#include "kvdiag_process.h"
#include "kvdiag_runner.h"
#include "running_handler.h"

static const char kHandler[] = "crash-handler --idle-seconds 3";

// Every test of this program starts with no handler running: the one an
// earlier test or program started would otherwise serve this test's clients.
struct NoHandlerAtStart : testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { EXPECT_TRUE(kvtest::EndRunningCrashHandler()); }
};
static const bool endsHandlers = (testing::UnitTest::GetInstance()->listeners().Append(new NoHandlerAtStart), true);

static std::string DumpInfo(const std::string& path) {
    return kvtest::RunKvdiag("dumpinfo \"" + path + "\"").output;
}

static const MINIDUMP_EXCEPTION_STREAM* ExceptionIn(const kvdiag::MappedDump& dump) {
    return dump.base() ? dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream) : nullptr;
}

static DWORD ExceptionCodeIn(const std::string& path) {
    const kvdiag::MappedDump dump(path.c_str());
    const auto* e = ExceptionIn(dump);
    return e ? e->ExceptionRecord.ExceptionCode : 0;
}

TEST(CrashHandler, WritesTheDumpOfEveryHardCrash) {
    kvtest::KvdiagProcess handler(kHandler);
    ASSERT_TRUE(handler.ReadUntil("listens on"));
    kvtest::InstalledHost h("crash_handled");
    // A stack overflow is handed over from the vectored handler: under Wine,
    // which ignores the stack guarantee, the thread is then ended before any
    // filter runs (exit code 0, no "dump returned"); on Windows the filter
    // finds it dumped and ends the process with the code.
    const struct {
        const char* kind;
        DWORD code;
        bool heavy;
        const char* option = "";
        bool inProcess = false;  // written by the crashed process (light: no modules under Wine)
    } cases[] = {
        {"access_violation", 0xC0000005, true}, {"stack_overflow", 0xC00000FD, false},
        {"heap_locked", 0xC0000005, false},     {"heap_damaged", 0xC0000005, false},
        {"two_threads", 0xC0000005, false},
        // Named after registering: the crash's files carry the new name.
        {"access_violation", 0xC0000005, false, "renamed"},
        // A stack overflow the host caught was dumped and spent the crash block.
        {"access_violation", 0xC0000005, false, "overflow-caught", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.kind) + " " + c.option);
        const bool overflow = c.code == 0xC00000FD;
        const std::string suffix = c.option == std::string("renamed") ? ".Renamed" : "", dumpName = "user" + suffix + ".dmp",
                          syslogName = "syslog" + suffix + ".dat";
        DeleteFileA(h.File(dumpName).c_str());
        DeleteFileA(h.File(syslogName).c_str());
        h.install.SetValue("Debug", "MiniDumpType", c.heavy ? "3" : "1");
        const auto& result = h.Run("handler_crash", {c.kind, c.option}, 120000);  // a hung host is killed: timedOut
        EXPECT_FALSE(result.timedOut);
        if (!overflow) EXPECT_EQ(c.code, result.exitCode) << result.output;
        if (!overflow) EXPECT_HAS(result.output, "filter: dump returned");
        const kvdiag::MappedDump dump(h.File(dumpName).c_str());
        const auto* e = ExceptionIn(dump);
        ASSERT_NE(nullptr, e);
        EXPECT_EQ(c.code, e->ExceptionRecord.ExceptionCode);
        // The crashing function's own code: the crash's context reached the dump.
        EXPECT_LT(e->ExceptionRecord.ExceptionAddress - kvtest::NumberAfter(result.output, "function=", 16), 0x40u);
        // Light dumps from outside list every module: both strengths walk their stacks.
        if (!c.inProcess) EXPECT_HAS(DumpInfo(h.File(dumpName)), overflow ? "!OverflowTheStack+" : "!CrashOnPurpose+");
        const std::string syslog = h.Log(syslogName);
        EXPECT_EQ(c.kind == std::string("two_threads"),
                  syslog.find("crashed while the minidump of thread") != std::string::npos)
            << syslog;
        EXPECT_EQ(c.inProcess, syslog.find("## EXCEPTION ## - Crash handler has written this process's stack overflow "
                                           "dump: the crashed process writes the minidump itself.") != std::string::npos)
            << syslog;
        EXPECT_TRUE(c.inProcess || syslog.find("writes the minidump itself") == std::string::npos) << syslog;
    }
    EXPECT_HAS(handler.Finish(60000).output, "no client for 3 s: ending");
}

// No handler runs: registering starts one (kvdiag.exe beside the DLL); the
// host then kills it, crashes, and writes the dump itself.
TEST(CrashHandler, KilledHandlerLeavesTheDumpToTheProcess) {
    kvtest::InstalledHost h("crash_handler_gone");
    h.install.SetValue("Debug", "MiniDumpType", "1");
    const auto& result = h.Run("handler_crash", {"access_violation", "kill-handler"});
    EXPECT_EQ(0xC0000005u, result.exitCode) << result.output;
    EXPECT_HAS(h.Log("syslog.dat"),
               "## EXCEPTION ## - Crash handler is gone: the crashed process writes the minidump itself.");
    EXPECT_EQ(0xC0000005u, ExceptionCodeIn(h.File("user.dmp")));
}

// Both would take user.dmp: the second writer takes user.2.dmp. Full dumps,
// so that the first is still being written when the second starts.
TEST(CrashHandler, TwoClientsCrashingTogetherGetTwoCompleteDumps) {
    kvtest::KvdiagProcess handler(kHandler);
    ASSERT_TRUE(handler.ReadUntil("listens on"));
    kvtest::ProductInstall install;
    install.SetValue("Debug", "MiniDumpType", "3");
    HANDLE go = CreateEventA(nullptr, TRUE, FALSE, "Local\\kvtest.crash.together");
    kvtest::ChildHost first("crash_together_a"), second("crash_together_b");
    for (kvtest::ChildHost* host : {&first, &second}) {
        ASSERT_TRUE(host->Start({"handler_crash", install.iniPath(), "access_violation", "together"}));
        ASSERT_TRUE(host->WaitForOutput("registered"));
    }
    SetEvent(go);
    for (kvtest::ChildHost* host : {&first, &second}) EXPECT_EQ(0xC0000005u, host->Wait(120000).exitCode);
    CloseHandle(go);
    for (const char* name : {"user.dmp", "user.2.dmp"})
        EXPECT_EQ(0xC0000005u, ExceptionCodeIn(install.logDir() + "\\" + name)) << name;
    handler.Finish(60000);
}

TEST(KvdiagDump, NamesBothThreadsOfADeadlock) {
    kvtest::ProductInstall install;
    kvtest::ChildHost host("crash_deadlock");
    ASSERT_TRUE(host.Start({"deadlock_ring", "2"}));
    ASSERT_TRUE(host.WaitForOutput("deadlocked"));
    const std::string ini = " --ini \"" + install.iniPath() + "\"";
    const auto light = kvtest::RunKvdiag("dump crash_deadlock" + ini);
    EXPECT_EQ(0u, light.exitCode) << light.output;
    const size_t from = light.output.find("light: ") + 7;
    const std::string path = light.output.substr(from, light.output.find(", ", from) - from);
    const std::string pid = std::to_string(kvtest::NumberAfter(light.output, "process "));
    EXPECT_EQ(0u, path.find(install.logDir() + "\\crash_deadlock." + pid + ".")) << path;
    // A second dump never replaces the first.
    EXPECT_HAS(kvtest::RunKvdiag("dump " + pid + " --out \"" + path + "\"").output, path.substr(0, path.size() - 4) + ".2.dmp, ");
    host.Wait(1);
    const std::string info = DumpInfo(path);
    EXPECT_HAS(info, "Exception:      none recorded");
    EXPECT_EQ(2u, kvtest::Count(info, "!TakeNextLock+")) << info;  // each thread's stack
}
