// The memory error reports as they reach the debug log of a product
// installation, one child host per detected fault.
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "installed_host.h"
#include "kvdiag_runner.h"

using kvtest::Count;

namespace {

// A scenario run against a fresh installation, with the debug log it left.
// The host's name, which the reports carry, is the scenario's unless given.
struct HostRun : kvtest::InstalledHost {
    std::string log;
    explicit HostRun(const std::string& scenario, std::vector<std::string> args = {}, const std::string& name = "")
        : InstalledHost(name.empty() ? scenario : name) {
        EXPECT_TRUE(Ok(scenario, std::move(args)));
        log = Log();
    }
};

}  // namespace

// Each overwrite is found twice (full check, then free), each time with the
// three neighbouring elements in order.
TEST(MemoryReports, OverrunsAndUnderrunsAreFoundByCheckAndFree) {
    const struct {
        const char *host, *offset, *length, *bytes;
    } cases[] = {{"mem_overrun_one_byte", "16", "1", "58 FD FD FD"},
                 {"mem_overrun_sixteen_bytes", "16", "16", "58 58 58 58 58 58 58 58 58 58 58 58 58 58 58 58"},
                 {"mem_underrun_one_byte", "-1", "1", "FD FD FD 58"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.host);
        const HostRun o("mem_damage_middle", {c.offset, c.length}, c.host);
        const std::string& log = o.log;
        EXPECT_EQ(2u, Count(log, std::string("Memory error - overwrite memory - ") + c.host + " detect")) << log;
        EXPECT_HAS(log, c.bytes);
        kvtest::Lines expected;
        for (const char* step : {"full check", "now freeing"})
            expected.insert(expected.end(), {step, "Memory error", "Previous memory element", "Size: 8\tFree: 0",
                                             "Memory element in error", "Size: 16\tFree: 0", "Next memory element",
                                             "Size: 24\tFree: 0"});
        EXPECT_TRUE(kvtest::InOrder(log, expected)) << log;
    }
}

// One report per fault, with the element or the pointer it concerns; light
// mode logs the pointer only.
TEST(MemoryReports, BadFreesAndLeaksAreReportedOnce) {
    const std::string kBadPointer = "Pointer not a valid memAlloc pointer 0x";
    const std::string kBadFree = "try to free bad or unknown memory";
    const struct {
        std::string host, scenario;
        std::vector<std::string> args;
        std::string report, detail, absent;
    } cases[] = {
        {"mem_double_free_kept", "mem_double_free_kept", {}, "try to free already free memory", "Size: 12\tFree: 1",
         ""},
        {"mem_bad_pointer_stack", "mem_free_stack_buffer", {}, kBadFree, kBadPointer, ""},
        {"mem_bad_pointer_middle", "mem_free_middle", {"guarded"}, kBadFree, kBadPointer, ""},
        {"mem_light_foreign_pointer", "mem_free_middle", {}, "", kBadPointer, "Memory error"},
        {"mem_light_double_free", "mem_light_double_free", {}, "", "Pointer used in double free 0x", ""},
        {"mem_leak_at_unload", "mem_leak_at_unload", {}, "memory not freed", "Size: 77\tFree: 0", "Size: 33"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.host);
        const HostRun o(c.scenario, c.args, c.host);
        if (!c.report.empty()) { EXPECT_EQ(1u, Count(o.log, "Memory error - " + c.report + " - " + c.host)) << o.log; }
        EXPECT_EQ(1u, Count(o.log, c.detail)) << o.log;
        if (c.report == kBadFree) { EXPECT_EQ(2u, Count(o.log, "Stack trace:")) << o.log; }  // pointer line and error
        if (!c.absent.empty()) { EXPECT_LACKS(o.log, c.absent); }
        if (c.host == "mem_light_double_free") { EXPECT_HAS(o.log, "64 64 64 64"); }  // the bytes at the pointer
    }
}

TEST(MemoryReports, InstrumentedReportNamesEachAllocationSite) {
    const HostRun o("mem_report_instrumented");
    int sites[2] = {0, 0};
    ASSERT_EQ(2, sscanf(o.last.output.c_str(), "site %d site %d", &sites[0], &sites[1])) << o.last.output;
    EXPECT_HAS(o.log, "current memory allocation count");
    EXPECT_LACKS(o.log, "maximum buffer report count");
    const kvtest::HostResult summary = kvtest::RunKvdiag("memreport --ini \"" + o.install.iniPath() + "\"");
    ASSERT_EQ(0u, summary.exitCode) << summary.output;
    // The report's layout is read in kvdiag_memreport_test.cpp; here the rows
    // kvdiag read from the table the library wrote, and its totals.
    EXPECT_HAS(summary.output, "Total memory buffers reported 2, net byte total 333");
    for (int i = 0; i < 2; ++i)
        EXPECT_HAS(kvtest::LineFrom(kvtest::Squeezed(summary.output), i ? " 1 222 " : " 1 111 "),
                   "detection_scenarios.cpp:" + std::to_string(sites[i]));

    const HostRun capped("mem_report_instrumented", {"10050"});
    EXPECT_EQ(10000u, Count(capped.log, "\nBuffer, ")) << capped.log.substr(0, 2000);
    EXPECT_EQ(1u, Count(capped.log, "... (maximum buffer report count was reached)"));
    EXPECT_NE(std::string::npos, capped.log.find("Total memory buffers reported 10000, net byte total"));
}

TEST(CallStackReports, WatcherLogsTheFirstAllocationsAtItsLine) {
    const HostRun o("mem_allocation_watcher");
    EXPECT_HAS(o.last.output, "watcher 0");
    EXPECT_EQ(2u, Count(o.log, "Memory Alloc StackTrace Trigger on detection_scenarios.cpp:")) << o.log;
    EXPECT_EQ(2u, Count(o.log, "WatchedAllocations(0x")) << o.log;
}

// A report far larger than the log's size limit rolls the log as it goes:
// neither the live file nor any history file passes the limit by more than a line.
TEST(MemoryReports, ReportRollsTheLogAtItsSizeLimit) {
    kvtest::InstalledHost h("mem_report_rolls");
    h.host.SetSetting("DebugLogSize", 16);  // KB
    ASSERT_TRUE(h.Ok("mem_report_instrumented", {"3000"}));
    constexpr size_t kLimit = 16 * 1024, kLongestLine = 300;
    const auto files = kvtest::ListFolder(h.install.logDir(), "debug.*");
    EXPECT_GE(files.size(), 2u) << "the report rolled the log";
    for (const auto& name : files) EXPECT_LE(kvtest::ReadFileText(h.File(name)).size(), kLimit + kLongestLine) << name;
}
