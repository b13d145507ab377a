// What KvException writes: the debug log lines of a chain and of the dummy
// exception, and the system-log notice, checked in a child host.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "child_host.h"
#include "product_install.h"
#include "temp_dir.h"

namespace {

size_t CountOf(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++n;
    return n;
}

std::vector<std::string> LinesWith(const std::vector<std::string>& lines, const std::string& part) {
    std::vector<std::string> found;
    for (const auto& line : lines)
        if (line.find(part) != std::string::npos) found.push_back(line);
    return found;
}

}  // namespace

TEST(KvExceptionLog, ChainAndDummyExceptionOutput) {
    kvtest::ProductInstall install;
    kvtest::ChildHost host("crash_exception_log");
    const auto result = host.Run({"crash_exception_chain", install.iniPath()});
    ASSERT_EQ(0u, result.exitCode) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("live=0"));

    const std::string debugLog = kvtest::ReadFileText(install.logDir() + "\\debug.log");
    // The first of a chain and the dummy each open with the banner; the
    // exception built on a previous one does not.
    EXPECT_EQ(2u, CountOf(debugLog, "*** KvException Dump to follow ***")) << debugLog;
    const auto lines = LinesWith(kvtest::ReadLines(install.logDir() + "\\debug.log"), "KvException : pid=");
    ASSERT_EQ(3u, lines.size()) << debugLog;
    EXPECT_NE(std::string::npos, lines[0].find("description:\"file missing\" error=0x80070002 (loader.cpp:0041)"));
    EXPECT_NE(std::string::npos, lines[1].find("description:\"load failed\" error=0x80004005 (starter.cpp:0007)"));
    EXPECT_NE(std::string::npos,
              lines[2].find("description:\"this is a dummy exception\" error=0xc0000010 (KvException:0125)"));
    // The banner comes before the first exception's line, not before the second's.
    const size_t firstBanner = debugLog.find("*** KvException Dump to follow ***");
    const size_t secondBanner = debugLog.find("*** KvException Dump to follow ***", firstBanner + 1);
    EXPECT_LT(firstBanner, debugLog.find("file missing"));
    EXPECT_GT(secondBanner, debugLog.find("load failed"));

    const auto notices =
        LinesWith(kvtest::ReadLines(install.logDir() + "\\syslog.dat"), "An error has been detected.");
    ASSERT_EQ(3u, notices.size());
    EXPECT_NE(std::string::npos,
              notices[2].find("An error has been detected. \"this is a dummy exception\", error code: 0xc0000010"));
}
