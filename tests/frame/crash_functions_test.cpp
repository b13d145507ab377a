// The deliberate-crash functions, each in a child host that really crashes.
#include <gtest/gtest.h>

#include "child_host.h"
#include "text_checks.h"

TEST(CrashFunctions, EachEndsItsHostAsDocumented) {
    const struct { const char *host, *scenario; bool crashOnError; DWORD exit; const char *has, *lacks; } cases[] = {
        {"crash_divide", "please_crash", false, 0xC0000094, "about to divide", "survived"},
        {"crash_catch", "crash_but_catch", false, 7, "caught twice", nullptr},
        {"crash_display_off", "display_error", false, 0, "no trap", nullptr},  // traps only with CrashOnError
        {"crash_display_on", "display_error", true, 0x80000003, nullptr, "no trap"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.host);
        kvtest::ChildHost host(c.host);
        if (c.crashOnError) host.SetSetting("CrashOnError", 1);
        const auto result = host.Run({c.scenario});
        EXPECT_EQ(c.exit, result.exitCode) << result.output;
        if (c.has) { EXPECT_HAS(result.output, c.has); }
        if (c.lacks) { EXPECT_LACKS(result.output, c.lacks); }
    }
}
