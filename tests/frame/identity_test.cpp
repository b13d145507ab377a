// The identity texts as the library's own reports print them: a memory error
// report carries IdString, the memory report CommandLine.
#include <gtest/gtest.h>

#include "installed_host.h"

TEST(Identity, IdTextIsCutAt99AndCommandLinePiecesJoin) {
    // shown: the id as the report line ends with it.
    const struct { const char* host; int length; std::string shown; bool cut; } cases[] = {
        {"frame_id_short", 99, std::string(98, 'i') + "Z", false},
        {"frame_id_long", 150, std::string(99, 'i'), true},  // the final "Z" is gone
        {"frame_id_huge", 40000, "", true},  // taken as a signed 16-bit count: negative, so empty
        {"frame_id_wrapped", 65536 + 50, std::string(50, 'i'), false}};  // counted as 50: the first 50 kept
    for (const auto& c : cases) {
        SCOPED_TRACE(c.host);
        kvtest::InstalledHost h(c.host);
        ASSERT_TRUE(h.Ok("identity_in_reports", {std::to_string(c.length)}));
        const std::string log = h.Log();
        EXPECT_HAS(log, "try to free bad or unknown memory - " + std::string(c.host) + " " + c.shown + "\n");
        EXPECT_EQ(c.cut, log.find("StrLengthCopy: invalid parameters or copy truncated pDest=") != std::string::npos)
            << log;
        if (c.cut) continue;
        EXPECT_HAS(h.last.output, "cmdline 0 0");
        EXPECT_HAS(log, "Memory Report: " + std::string(c.host) + " PID ");
        EXPECT_HAS(log, " - CmdLine abcd\n");
    }
}
