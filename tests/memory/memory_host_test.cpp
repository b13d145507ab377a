// The allocator in child hosts: page guarding, the page pool and a
// multi-threaded stress in guarded mode.
#include <gtest/gtest.h>
#include <stdio.h>

#include "installed_host.h"

TEST(MemoryHost, PageGuardingAndThePagePoolEndTheHostAsDocumented) {
    const struct {
        const char *host, *scenario, *setting;
        DWORD value;
        std::vector<std::string> args;
        DWORD exitCode;
        const char* has;  // nullptr: the host must not get as far as "survived"
    } cases[] = {
        // Without guard buffers the element ends at a no-access page, so the
        // first byte past it faults at the write itself; with them its region
        // is still found from its placement.
        {"mem_page_guard", "mem_page_guard", "MemoryBufferSize", 0, {}, 0, "elements=1 bytes=10 total=74 guarded=1"},
        {"mem_page_guard_overrun", "mem_page_guard", "MemoryBufferSize", 0, {"overrun"}, 0xC0000005, nullptr},
        {"mem_page_guard_buffered", "mem_page_guard", nullptr, 0, {}, 0, "elements=1 bytes=10 total=106 guarded=1"},
        // The page pool allocates, frees and reuses its blocks.
        {"mem_page_pool", "mem_page_pool", "AllocFromPage", 1, {}, 0, "again 1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.host);
        kvtest::InstalledHost h(c.host);
        if (c.setting) h.host.SetSetting(c.setting, c.value);
        const auto& r = h.Run(c.scenario, c.args);
        EXPECT_EQ(c.exitCode, r.exitCode) << r.output;
        if (c.has) { EXPECT_HAS(r.output, c.has); }
        else { EXPECT_LACKS(r.output, "survived"); }
    }
}

// Plain guarded mode, then a full check on every call plus periodic checks.
// No false report: nothing at all reaches the debug log.
TEST(MemoryHost, GuardedStressOnFourThreads) {
    for (const char* mode : {"1", "36"}) {
        SCOPED_TRACE(mode);
        kvtest::InstalledHost h("mem_guarded_stress");
        const auto& r = h.Run("mem_guarded_stress", {mode}, 300000);
        EXPECT_EQ(0u, r.exitCode) << r.output;
        EXPECT_HAS(r.output, "end elements=0 bytes=0 total=0 guarded=0");
        const std::string log = h.Log();
        EXPECT_EQ(std::string::npos, log.find("Memory error")) << log.substr(0, 2000);
        EXPECT_EQ(std::string::npos, log.find("Pointer")) << log.substr(0, 2000);
    }
}

// The location is "*" + the last 30 characters of the path and the line of the call.
TEST(CallStackHost, AllocationLocationIsTheCallersLine) {
    const auto r = kvtest::ChildHost("mem_location_lookup").Run({"mem_location_lookup"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    for (const char* part : {"before 0", "enabled 1", "frames 8 0", "null 0"}) EXPECT_HAS(r.output, part);
    const std::string lookup = kvtest::LineFrom(r.output, "lookup *");
    ASSERT_NE(std::string::npos, lookup.find("detection_scenarios.cpp:")) << r.output;
    unsigned line = 0;
    int site = -1;
    ASSERT_EQ(2, sscanf(lookup.c_str() + lookup.find(".cpp:"), ".cpp:%u site %d", &line, &site)) << lookup;
    EXPECT_EQ(unsigned(site), line) << lookup;
}
