// The memory error reports as they reach the debug log of a product
// installation, one child host per detected fault.
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"

using kvtest::ChildHost;
using kvtest::ProductInstall;

namespace {

size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

struct Outcome {
    kvtest::HostResult result;
    std::string log;
};

Outcome RunScenario(const std::string& scenario, std::vector<std::string> extra = {}) {
    ProductInstall install;
    ChildHost host(scenario);
    std::vector<std::string> args{scenario, install.iniPath()};
    args.insert(args.end(), extra.begin(), extra.end());
    Outcome out{host.Run(args), ""};
    out.log = kvtest::ReadFileText(install.logDir() + "\\debug.log");
    return out;
}

// An overwrite found twice (full check, then free), each time with the three
// neighbouring elements in order.
void ExpectOverwriteFoundTwice(const std::string& scenario, const std::string& damagedBytes) {
    const Outcome o = RunScenario(scenario);
    ASSERT_EQ(0u, o.result.exitCode) << o.result.output;
    const std::string& log = o.log;
    EXPECT_EQ(2u, Count(log, "Memory error - overwrite memory - " + scenario + " detect")) << log;
    const size_t check = log.find("full check");
    const size_t free = log.find("now freeing", check);
    ASSERT_NE(std::string::npos, free) << log;
    for (size_t from : {check, free}) {
        const size_t error = log.find("Memory error - overwrite memory", from);
        const size_t previous = log.find("Previous memory element", error);
        const size_t faulty = log.find("Memory element in error", previous);
        const size_t next = log.find("Next memory element", faulty);
        ASSERT_NE(std::string::npos, next) << log;
        EXPECT_NE(std::string::npos, log.find("Size: 8\tFree: 0", previous));
        EXPECT_LT(log.find("Size: 16\tFree: 0", faulty), next);
        EXPECT_NE(std::string::npos, log.find("Size: 24\tFree: 0", next));
    }
    EXPECT_NE(std::string::npos, log.find(damagedBytes)) << log;
}

}  // namespace

TEST(MemoryReports, OverrunsAndUnderrunsAreFoundByCheckAndFree) {
    ExpectOverwriteFoundTwice("mem_overrun_one_byte", "58 FD FD FD");
    ExpectOverwriteFoundTwice("mem_overrun_sixteen_bytes", "58 58 58 58 58 58 58 58 58 58 58 58 58 58 58 58");
    ExpectOverwriteFoundTwice("mem_underrun_one_byte", "FD FD FD 58");
}

TEST(MemoryReports, DoubleFreeOfAKeptElementIsReportedOnce) {
    const Outcome o = RunScenario("mem_double_free_kept");
    ASSERT_EQ(0u, o.result.exitCode) << o.result.output;
    EXPECT_EQ(1u, Count(o.log, "Memory error - try to free already free memory - mem_double_free_kept")) << o.log;
    EXPECT_NE(std::string::npos, o.log.find("Size: 12\tFree: 1")) << o.log;
}

TEST(MemoryReports, BadPointersAreRefused) {
    for (const char* scenario : {"mem_bad_pointer_stack", "mem_bad_pointer_middle"}) {
        const Outcome o = RunScenario(scenario);
        ASSERT_EQ(0u, o.result.exitCode) << o.result.output;
        EXPECT_EQ(1u, Count(o.log, "Pointer not a valid memAlloc pointer 0x")) << o.log;
        EXPECT_EQ(1u, Count(o.log, std::string("Memory error - try to free bad or unknown memory - ") + scenario))
            << o.log;
        EXPECT_EQ(2u, Count(o.log, "Stack trace:")) << o.log;
    }
}

TEST(MemoryReports, LightModeDoubleFreeAndForeignPointer) {
    const Outcome twice = RunScenario("mem_light_double_free");
    ASSERT_EQ(0u, twice.result.exitCode) << twice.result.output;
    EXPECT_EQ(1u, Count(twice.log, "Pointer used in double free 0x")) << twice.log;
    // The dump shows the bytes at the pointer.
    EXPECT_NE(std::string::npos, twice.log.find("64 64 64 64")) << twice.log;

    const Outcome foreign = RunScenario("mem_light_foreign_pointer");
    ASSERT_EQ(0u, foreign.result.exitCode) << foreign.result.output;
    EXPECT_EQ(1u, Count(foreign.log, "Pointer not a valid memAlloc pointer 0x")) << foreign.log;
    EXPECT_EQ(0u, Count(foreign.log, "Memory error")) << foreign.log;
}

TEST(MemoryReports, LeakAtUnloadSkipsExemptElements) {
    const Outcome o = RunScenario("mem_leak_at_unload");
    ASSERT_EQ(0u, o.result.exitCode) << o.result.output;
    EXPECT_EQ(1u, Count(o.log, "Memory error - memory not freed - mem_leak_at_unload")) << o.log;
    EXPECT_NE(std::string::npos, o.log.find("Size: 77\tFree: 0")) << o.log;
    EXPECT_EQ(std::string::npos, o.log.find("Size: 33")) << o.log;
}

TEST(MemoryReports, InstrumentedReportNamesEachAllocationSite) {
    const Outcome o = RunScenario("mem_report_instrumented");
    ASSERT_EQ(0u, o.result.exitCode) << o.result.output;
    int sites[2] = {0, 0};
    ASSERT_EQ(2, sscanf(o.result.output.c_str(), "site %d site %d", &sites[0], &sites[1])) << o.result.output;
    EXPECT_NE(std::string::npos, o.log.find("Memory Report: mem_report_instrumented PID ")) << o.log;
    EXPECT_NE(std::string::npos, o.log.find("current memory allocation count")) << o.log;
    EXPECT_NE(std::string::npos, o.log.find("Type, Timestamp, Bytes, PID, Pointer, Source, Content")) << o.log;
    for (int i = 0; i < 2; ++i) {
        const std::string size = i == 0 ? ", 00111, " : ", 00222, ";
        const size_t row = o.log.find(size);
        ASSERT_NE(std::string::npos, row) << o.log;
        const std::string line = o.log.substr(row, o.log.find('\n', row) - row);
        EXPECT_NE(std::string::npos, line.find("memory\\detection_scenarios.cpp:" + std::to_string(sites[i]) + ","))
            << line;
    }
    EXPECT_EQ(std::string::npos, o.log.find("maximum buffer report count")) << o.log;

    const Outcome capped = RunScenario("mem_report_instrumented", {"10050"});
    ASSERT_EQ(0u, capped.result.exitCode) << capped.result.output;
    EXPECT_EQ(10000u, Count(capped.log, "\nBuffer, ")) << capped.log.substr(0, 2000);
    EXPECT_EQ(1u, Count(capped.log, "... (maximum buffer report count was reached)"));
    EXPECT_NE(std::string::npos, capped.log.find("Total memory buffers reported 10000, net byte total"));
}

TEST(CallStackReports, SymbolicStackNamesHostFunctionsAndLines) {
    const Outcome o = RunScenario("mem_symbolic_stack");
    ASSERT_EQ(0u, o.result.exitCode) << o.result.output;
    int site = 0;
    ASSERT_EQ(1, sscanf(o.result.output.c_str(), "site %d", &site)) << o.result.output;
    EXPECT_NE(std::string::npos, o.log.find("Callstack instrumentation has been enabled (PID ")) << o.log;
    const size_t frame = o.log.find("HostFunctionForStack");
    ASSERT_NE(std::string::npos, frame) << o.log;
    const std::string line = o.log.substr(frame, o.log.find('\n', frame) - frame);
    EXPECT_NE(std::string::npos, line.find("detection_scenarios.cpp Line " + std::to_string(site) + " + Offset 0x"))
        << line;
    EXPECT_NE(std::string::npos, o.log.find("(mem_symbolic_stack.exe) ")) << o.log;
    // The caller's frame follows.
    EXPECT_NE(std::string::npos, o.log.find("mem_symbolic_stack_scenario", frame)) << o.log;
}

TEST(CallStackReports, WatcherLogsTheFirstAllocationsAtItsLine) {
    const Outcome o = RunScenario("mem_allocation_watcher");
    ASSERT_EQ(0u, o.result.exitCode) << o.result.output;
    EXPECT_NE(std::string::npos, o.result.output.find("watcher 0")) << o.result.output;
    EXPECT_EQ(2u, Count(o.log, "Memory Alloc StackTrace Trigger on detection_scenarios.cpp:")) << o.log;
    EXPECT_EQ(2u, Count(o.log, ") WatchedAllocations(0x")) << o.log;
}
