// The allocator in child hosts: crashes, page guarding, the page pool and a
// multi-threaded stress in guarded mode.
#include <gtest/gtest.h>

#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"

using kvtest::ChildHost;

TEST(MemoryHost, CrashOnErrorTurnsABadFreeIntoABreakpoint) {
    ChildHost host("mem_crash_on_error");
    host.SetSetting("CrashOnError", 1);
    const auto r = host.Run({"mem_crash_on_error"});
    EXPECT_EQ(0x80000003u, r.exitCode) << r.output;
    EXPECT_EQ(std::string::npos, r.output.find("survived"));

    ChildHost quiet("mem_no_crash_on_error");
    const auto q = quiet.Run({"mem_crash_on_error"});
    EXPECT_EQ(0u, q.exitCode) << q.output;
    EXPECT_NE(std::string::npos, q.output.find("survived"));
}

TEST(MemoryHost, PageGuardedOverrunFaultsAtTheWrite) {
    ChildHost host("mem_page_guard");
    host.SetSetting("MemoryBufferSize", 0);
    const auto fine = host.Run({"mem_page_guard"});
    EXPECT_EQ(0u, fine.exitCode) << fine.output;
    EXPECT_NE(std::string::npos, fine.output.find("allocated elements=1 bytes=10 total=74 guarded=1"))
        << fine.output;
    EXPECT_NE(std::string::npos, fine.output.find("freed elements=1 bytes=10 total=74 guarded=1")) << fine.output;
    const auto overrun = host.Run({"mem_page_guard", "overrun"});
    EXPECT_EQ(0xC0000005u, overrun.exitCode) << overrun.output;
    EXPECT_EQ(std::string::npos, overrun.output.find("survived"));

    // With guard buffers the element's region is still found from its placement.
    ChildHost buffered("mem_page_guard_buffered");
    const auto b = buffered.Run({"mem_page_guard"});
    EXPECT_EQ(0u, b.exitCode) << b.output;
    EXPECT_NE(std::string::npos, b.output.find("freed elements=1 bytes=10 total=106 guarded=1")) << b.output;
}

TEST(MemoryHost, PagePoolAllocatesFreesAndReuses) {
    ChildHost host("mem_page_pool");
    host.SetSetting("AllocFromPage", 1);
    const auto r = host.Run({"mem_page_pool"});
    EXPECT_EQ(0u, r.exitCode) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("again 1")) << r.output;
}

TEST(MemoryHost, GuardedStressOnFourThreads) {
    ChildHost host("mem_guarded_stress");
    for (const char* mode : {"1", "36"}) {  // plain guarded; full check on every call and periodic checks
        kvtest::ProductInstall install;
        const auto r = host.Run({"mem_guarded_stress", mode, install.iniPath()}, 300000);
        EXPECT_EQ(0u, r.exitCode) << r.output;
        EXPECT_NE(std::string::npos, r.output.find("end elements=0 bytes=0 total=0 guarded=0")) << r.output;
        // No false report: nothing at all reaches the debug log.
        const std::string log = kvtest::ReadFileText(install.logDir() + "\\debug.log");
        EXPECT_EQ(std::string::npos, log.find("Memory error")) << log.substr(0, 2000);
        EXPECT_EQ(std::string::npos, log.find("Pointer")) << log.substr(0, 2000);
    }
}

TEST(CallStackHost, AllocationLocationIsTheCallersLine) {
    ChildHost host("mem_location_lookup");
    const auto r = host.Run({"mem_location_lookup"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("before 0")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("enabled 1")) << r.output;
    // "*" + the last 30 characters of the path, and the line of the call.
    const size_t at = r.output.find("lookup *");
    ASSERT_NE(std::string::npos, at) << r.output;
    const std::string lookup = r.output.substr(at, r.output.find_first_of("\r\n", at) - at);
    EXPECT_NE(std::string::npos, lookup.find("callstack_scenarios.cpp:")) << lookup;
    const std::string line = lookup.substr(lookup.find(".cpp:") + 5, lookup.find(' ', 7) - lookup.find(".cpp:") - 5);
    EXPECT_EQ(lookup.substr(lookup.find("site ") + 5), line) << lookup;
    EXPECT_NE(std::string::npos, r.output.find("frames 8 0")) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("null 0")) << r.output;
}
