// The crash handler end to end: hosts register and crash the hard ways, the
// handler writes their dumps from outside, and kvdiag reads them back; kvdiag
// dump on a deadlocked host.
#include <gtest/gtest.h>

#include "dump/dump_reader.h"
#include "installed_host.h"
#include "kvdiag_process.h"
#include "kvdiag_runner.h"

static const char kHandler[] = "crash-handler --idle-seconds 3";

static std::string DumpInfo(const std::string& path) {
    return kvtest::RunKvdiag("dumpinfo \"" + path + "\"").output;
}

static DWORD ExceptionCodeIn(const std::string& path) {
    kvdiag::MappedDump dump(path.c_str());
    const auto* e = dump.base() ? dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream) : nullptr;
    return e ? e->ExceptionRecord.ExceptionCode : 0;
}

TEST(CrashHandler, WritesTheDumpOfEveryHardCrash) {
    kvtest::KvdiagProcess handler(kHandler);
    ASSERT_TRUE(handler.ReadUntil("listens on"));
    kvtest::InstalledHost h("crash_handled");
    const struct {
        const char* kind;
        DWORD code;
        const char* function;  // where it crashed
    } cases[] = {
        {"access_violation", 0xC0000005, "!CrashOnPurpose"}, {"stack_overflow", 0xC00000FD, "!OverflowTheStack"},
        {"heap_locked", 0xC0000005, "!CrashOnPurpose"},      {"heap_damaged", 0xC0000005, "!CrashOnPurpose"},
        {"two_threads", 0xC0000005, "!CrashOnPurpose"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.kind);
        DeleteFileA(h.File("user.dmp").c_str());
        DeleteFileA(h.File("syslog.dat").c_str());
        const auto& result = h.Run("handler_crash", {c.kind}, 120000);  // a hung host is killed: timedOut
        EXPECT_FALSE(result.timedOut);
        EXPECT_EQ(c.code, result.exitCode) << result.output;
        EXPECT_HAS(result.output, "filter: dump returned");
        char code[32];
        snprintf(code, sizeof code, "code 0x%08lx", static_cast<unsigned long>(c.code));
        const std::string info = DumpInfo(h.File("user.dmp"));
        EXPECT_HAS(info, code);
        EXPECT_HAS(info, c.function);
        const std::string syslog = h.Log("syslog.dat");
        EXPECT_EQ(c.kind == std::string("two_threads"),
                  syslog.find("crashed while the minidump of thread") != std::string::npos)
            << syslog;
        EXPECT_LACKS(syslog, "writes the minidump itself");
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

// Both would take user.dmp: the second writer takes user.2.dmp.
TEST(CrashHandler, TwoClientsCrashingTogetherGetTwoCompleteDumps) {
    kvtest::KvdiagProcess handler(kHandler);
    ASSERT_TRUE(handler.ReadUntil("listens on"));
    kvtest::ProductInstall install;
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
    ASSERT_TRUE(host.Start({"deadlock"}));
    ASSERT_TRUE(host.WaitForOutput("deadlocked"));
    const std::string ini = " --ini \"" + install.iniPath() + "\"";
    const auto heavy = kvtest::RunKvdiag("dump crash_deadlock heavy" + ini);
    EXPECT_EQ(0u, heavy.exitCode) << heavy.output;
    EXPECT_HAS(heavy.output, install.logDir() + "\\user.dmp, ");
    // A second dump never replaces the first.
    EXPECT_HAS(kvtest::RunKvdiag("dump crash_deadlock.exe light" + ini).output, install.logDir() + "\\user.2.dmp, ");
    host.Wait(1);
    const std::string info = DumpInfo(install.logDir() + "\\user.dmp");
    EXPECT_HAS(info, "Exception:      none recorded");
    EXPECT_HAS(info, "!DeadlockFirstThenSecond");
    EXPECT_HAS(info, "!DeadlockSecondThenFirst");
}
