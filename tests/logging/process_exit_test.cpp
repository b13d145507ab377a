// Process exit while another thread logs: ExitProcess ends that thread
// wherever it is, possibly as the log's writer. What the process logs after
// that (the memory report at unload, another module's detach) must still
// reach the file, and the process must end.
#include <gtest/gtest.h>

#include "installed_host.h"

TEST(DebugLogAtExit, LinesLoggedWhileTheProcessEndsReachTheFileAndItEnds) {
    const struct {
        const char* mode;
        const char* line;
    } cases[] = {{"report", "current memory allocation count"}, {"module", "logged by a module's detach"}};
    for (const auto& c : cases) {
        // Each run ends the busy thread at another point.
        for (int run = 0; run < 3; ++run) {
            SCOPED_TRACE(std::string(c.mode) + " run " + std::to_string(run));
            kvtest::InstalledHost h(std::string("log_exit_") + c.mode);
            const kvtest::HostResult& r = h.Run("log_exit_busy", {c.mode}, 60000);
            ASSERT_FALSE(r.timedOut) << "hung at exit\n" << r.output;
            EXPECT_EQ(0u, r.exitCode) << r.output;
            const std::string log = h.Log();
            EXPECT_HAS(log, "busy 0");
            EXPECT_HAS(log, c.line);
        }
    }
}
