// How each deliberate crash and each detected fault ends a child host that
// really crashes, with and without CrashOnError.
#include <gtest/gtest.h>

#include "installed_host.h"

TEST(CrashFunctions, EachEndsItsHostAsDocumented) {
    const struct { const char *host, *scenario; bool crashOnError; DWORD exit; const char *has, *lacks; } cases[] = {
        {"crash_divide", "please_crash", false, 0xC0000094, "about to divide", "survived"},
        {"crash_catch", "crash_but_catch", false, 7, "caught twice", nullptr},
        {"crash_display_off", "display_error", false, 0, "no trap", nullptr},  // traps only with CrashOnError
        {"crash_display_on", "display_error", true, 0x80000003, nullptr, "no trap"},
        // A bad free becomes a breakpoint (detection_test.cpp runs it without).
        {"mem_crash_on_error", "mem_free_stack_buffer", true, 0x80000003, nullptr, "survived"},
        // The self-check skips the overrun it would detect, so the host survives
        // the whole suite (its exit code counts failed checks).
        {"crash_selfcheck_trap", "selfcheck_after_startup", true, 0, "SKIP  guarded overrun detected - CrashOnError is on",
         nullptr}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.host);
        kvtest::InstalledHost h(c.host);
        if (c.crashOnError) h.host.SetSetting("CrashOnError", 1);
        const auto& result = h.Run(c.scenario);
        EXPECT_EQ(c.exit, result.exitCode) << result.output;
        if (c.has) { EXPECT_HAS(result.output, c.has); }
        if (c.lacks) { EXPECT_LACKS(result.output, c.lacks); }
    }
}
