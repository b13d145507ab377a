// The hang watchdog end to end: a watched thread that falls silent gets one
// hang dump per hang, readable down to the blocked function, while its
// process runs on; kvdiag dump of a process that ends during the dump.
#include <gtest/gtest.h>

#include "installed_host.h"
#include "kvdiag_process.h"
#include "kvdiag_runner.h"

// The names of the hang dumps in folder.
static std::vector<std::string> HangDumps(const std::string& folder) { return kvtest::ListFolder(folder, "*.hang.dmp"); }

TEST(HangWatch, OneDumpPerHangNamingTheBlockedFunctionWhileTheProcessRunsOn) {
    kvtest::KvdiagProcess handler("crash-handler --idle-seconds 3");  // ends with the test, for the next
    ASSERT_TRUE(handler.ReadUntil("listens on"));
    kvtest::InstalledHost h("hang_watched");
    h.install.SetValue("Debug", "MiniDumpType", "1");
    ASSERT_TRUE(h.host.Start({"hang_watched", h.install.iniPath()}));
    ASSERT_TRUE(h.host.WaitForOutput("blocking"));
    EXPECT_TRUE(HangDumps(h.install.logDir()).empty()) << "a dump while the thread beat";
    const ULONGLONG blocked = GetTickCount64();
    while (HangDumps(h.install.logDir()).empty() && GetTickCount64() - blocked < 10000) Sleep(100);
    EXPECT_LT(GetTickCount64() - blocked, 10000u) << "no hang dump within 10 s";
    const auto result = h.host.Wait(60000);
    EXPECT_EQ(0u, result.exitCode) << result.output;  // it ran on, and its watch ended cleanly
    const auto dumps = HangDumps(h.install.logDir());
    ASSERT_EQ(2u, dumps.size()) << "one per hang, armed again by the heartbeat";
    const std::string pid = std::to_string(kvtest::NumberAfter(result.output, "pid="));
    EXPECT_EQ(0u, dumps[0].find("hang_watched." + pid + ".")) << dumps[0];
    EXPECT_HAS(kvtest::RunKvdiag("dumpinfo --threads \"" + h.File(dumps[0]) + "\"").output, "!BlockWithoutHeartbeat+");
    const std::string syslog = h.Log("syslog.dat");
    EXPECT_EQ(2u, kvtest::Count(syslog, "## HANG ## - Thread ")) << syslog;
    EXPECT_HAS(syslog, " of hang_watched.exe (process " + pid + ") has sent no heartbeat for ");
    const std::string said = handler.Finish(60000).output;
    EXPECT_EQ(2u, kvtest::Count(said, ": writing a hang dump")) << said;
    EXPECT_HAS(said, "beats again after");
}

// The dump's file appears before the dump is written: the test then ends the
// process, which a full dump under Wine outlasts by seconds.
TEST(KvdiagDump, AProcessThatEndsDuringTheDumpLeavesAnIncompleteDump) {
    kvtest::ProductInstall install;
    kvtest::ChildHost host("dump_ends");
    ASSERT_TRUE(host.Start({"deadlock_ring", "2"}));
    ASSERT_TRUE(host.WaitForOutput("deadlocked"));
    kvtest::KvdiagProcess dump("dump dump_ends heavy --ini \"" + install.iniPath() + "\"");
    std::vector<std::string> begun;
    for (int i = 0; i < 300 && (begun = HangDumps(install.logDir())).empty(); ++i) Sleep(100);
    ASSERT_EQ(1u, begun.size());
    HANDLE process = OpenProcess(PROCESS_TERMINATE, FALSE, DWORD(kvtest::NumberAfter(begun[0], "dump_ends.")));
    ASSERT_TRUE(process && TerminateProcess(process, 3));
    CloseHandle(process);
    const auto result = dump.Finish(120000);
    EXPECT_EQ(1u, result.exitCode) << result.output;
    EXPECT_HAS(result.output,
               "ended during the dump (exit code 0x00000003): \"" + install.logDir() + "\\" + begun[0] + "\" is incomplete");
}
