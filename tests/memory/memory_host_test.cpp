// The allocator in child hosts: crashes, page guarding, the page pool and a
// multi-threaded stress in guarded mode.
#include <gtest/gtest.h>
#include <stdio.h>

#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"
#include "text_checks.h"

using kvtest::ChildHost;

TEST(MemoryHost, CrashOnErrorTurnsABadFreeIntoABreakpoint) {
    for (int crash : {1, 0}) {
        SCOPED_TRACE(crash);
        ChildHost host(crash ? "mem_crash_on_error" : "mem_no_crash_on_error");
        if (crash) host.SetSetting("CrashOnError", 1);
        const auto r = host.Run({"mem_free_stack_buffer"});
        EXPECT_EQ(crash ? 0x80000003u : 0u, r.exitCode) << r.output;
        EXPECT_EQ(!crash, r.output.find("survived") != std::string::npos) << r.output;
    }
}

// The element ends at a no-access page, so the first byte past it faults at
// the write itself; with guard buffers its region is still found from its placement.
TEST(MemoryHost, PageGuardedOverrunFaultsAtTheWrite) {
    ChildHost host("mem_page_guard");
    host.SetSetting("MemoryBufferSize", 0);
    const auto fine = host.Run({"mem_page_guard"});
    EXPECT_EQ(0u, fine.exitCode) << fine.output;
    EXPECT_HAS(fine.output, "allocated elements=1 bytes=10 total=74 guarded=1");
    EXPECT_HAS(fine.output, "freed elements=1 bytes=10 total=74 guarded=1");
    const auto overrun = host.Run({"mem_page_guard", "overrun"});
    EXPECT_EQ(0xC0000005u, overrun.exitCode) << overrun.output;
    EXPECT_LACKS(overrun.output, "survived");
    const auto buffered = ChildHost("mem_page_guard_buffered").Run({"mem_page_guard"});
    EXPECT_EQ(0u, buffered.exitCode) << buffered.output;
    EXPECT_HAS(buffered.output, "freed elements=1 bytes=10 total=106 guarded=1");
}

TEST(MemoryHost, PagePoolAllocatesFreesAndReuses) {
    ChildHost host("mem_page_pool");
    host.SetSetting("AllocFromPage", 1);
    const auto r = host.Run({"mem_page_pool"});
    EXPECT_EQ(0u, r.exitCode) << r.output;
    EXPECT_HAS(r.output, "again 1");
}

// Plain guarded mode, then a full check on every call plus periodic checks.
// No false report: nothing at all reaches the debug log.
TEST(MemoryHost, GuardedStressOnFourThreads) {
    ChildHost host("mem_guarded_stress");
    for (const char* mode : {"1", "36"}) {
        SCOPED_TRACE(mode);
        kvtest::ProductInstall install;
        const auto r = host.Run({"mem_guarded_stress", mode, install.iniPath()}, 300000);
        EXPECT_EQ(0u, r.exitCode) << r.output;
        EXPECT_HAS(r.output, "end elements=0 bytes=0 total=0 guarded=0");
        const std::string log = kvtest::ReadFileText(install.logDir() + "\\debug.log");
        EXPECT_EQ(std::string::npos, log.find("Memory error")) << log.substr(0, 2000);
        EXPECT_EQ(std::string::npos, log.find("Pointer")) << log.substr(0, 2000);
    }
}

// The location is "*" + the last 30 characters of the path and the line of the call.
TEST(CallStackHost, AllocationLocationIsTheCallersLine) {
    const auto r = ChildHost("mem_location_lookup").Run({"mem_location_lookup"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    for (const char* part : {"before 0", "enabled 1", "frames 8 0", "null 0"}) EXPECT_HAS(r.output, part);
    const std::string lookup = LineFrom(r.output, "lookup *");
    ASSERT_NE(std::string::npos, lookup.find("detection_scenarios.cpp:")) << r.output;
    unsigned line = 0;
    int site = -1;
    ASSERT_EQ(2, sscanf(lookup.c_str() + lookup.find(".cpp:"), ".cpp:%u site %d", &line, &site)) << lookup;
    EXPECT_EQ(unsigned(site), line) << lookup;
}
