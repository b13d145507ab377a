// The debug log writer in child hosts: line shapes, percent signs, over-long
// messages, time zones, rolling and faults.
#include <gtest/gtest.h>

#include "log_test_util.h"

using kvtest::ChildHost;
using kvtest::ProductInstall;
using kvtest::ReadFileText;
using kvtest::ReadLines;
using logtest::MessageOf;
using logtest::RunScript;

TEST(DebugLog, LinesAreTimestampedAndEndInOneNewline) {
    ProductInstall install;
    ChildHost host("log_shapes");
    const auto r = RunScript(host, install,
                             {"x5", "line=ends in newline<LF>", "format=<LF>after empty", "format=<LF>Z", "format=<LF>",
                              "file=raw text<LF>second raw<LF>", "comp=Shapes", "line=own file"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const std::string text = ReadFileText(install.logDir() + "\\debug.log");
    // Line ends are CR LF on disk, like every text file of the product.
    EXPECT_EQ(std::string::npos, text.find("\n\n")) << "every LF follows a CR";
    const auto lines = ReadLines(install.logDir() + "\\debug.log");
    ASSERT_EQ(9u, lines.size()) << text;
    EXPECT_EQ("x=5", MessageOf(lines[0]));
    EXPECT_EQ("ends in newline", MessageOf(lines[1]));
    EXPECT_EQ("", lines[2]);
    EXPECT_EQ("after empty", MessageOf(lines[3]));
    EXPECT_EQ("", lines[4]);  // a newline and one character: a bare newline
    EXPECT_EQ("", lines[5]);  // a newline alone
    EXPECT_EQ("raw text", lines[6]);
    EXPECT_EQ("second raw", lines[7]);
    // A component name set later names new files only: the open log stays.
    EXPECT_EQ("own file", MessageOf(lines[8]));
    EXPECT_FALSE(kvtest::FileExists(install.logDir() + "\\debug.Shapes.log"));
}

TEST(DebugLog, PercentSignsInMessagesAreNeverReadAsConversions) {
    ProductInstall install;
    ChildHost host("log_percent");
    const auto r = RunScript(host, install,
                             {"line=50%% done %s %n %d %", "format=rate 75%%", "wide=9%%%% %s %n"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const auto lines = ReadLines(install.logDir() + "\\debug.log");
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("50% done %s %n %d %", MessageOf(lines[0]));
    EXPECT_EQ("rate 75%", MessageOf(lines[1]));
    EXPECT_EQ("w=7 9% %s %n", MessageOf(lines[2]));
}

TEST(DebugLog, LogHandlesStayOutOfChildProcesses) {
    ProductInstall install;
    ChildHost host("log_inherit");
    const auto r = RunScript(host, install, {"line=opens the log", "open=app.log:10", "handles=debug.log", "handles=app.log"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const size_t first = r.output.find("found=1 inheritable=0");
    ASSERT_NE(std::string::npos, first) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("found=1 inheritable=0", first + 1)) << r.output;
}

TEST(DebugLog, OverlongMessagesAreCutInsideTheLine) {
    ProductInstall install;
    ChildHost host("log_overlong");
    const auto r = RunScript(host, install, {"long=5000", "line=next", "long=991", "long=992", "widelong"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const std::string text = ReadFileText(install.logDir() + "\\debug.log");
    const auto lines = ReadLines(install.logDir() + "\\debug.log");
    ASSERT_EQ(5u, lines.size()) << text.size();
    // 1024 bytes: stamp (30), blank, message, newline, terminator.
    EXPECT_EQ(std::string(991, 'L'), MessageOf(lines[0]));
    EXPECT_EQ("next", MessageOf(lines[1]));
    EXPECT_EQ(std::string(991, 'L'), MessageOf(lines[2]));
    EXPECT_EQ(std::string(991, 'L'), MessageOf(lines[3]));
    // A wide message that overflows its buffer is dropped; the line remains.
    EXPECT_EQ(31u, lines[4].size());
}

TEST(DebugLog, LogErrorsOffWritesNoFileAtAll) {
    ProductInstall install;
    ChildHost host("log_silent");
    host.SetSetting("LogErrors", 0);
    const auto r = RunScript(host, install, {"x5", "file=raw", "wide=w", "path"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_FALSE(kvtest::FileExists(install.logDir() + "\\debug.log"));
}

namespace {

// A host whose log rolls at 1 KB, keeping `history` history files.
struct RollingHost {
    ProductInstall install;
    ChildHost host;
    RollingHost(const char* name, int history) : host(name) {
        host.SetSetting("DebugLogSize", 1);
        host.SetSetting("DebugLogHistoryFiles", DWORD(history));
        CreateDirectoryA(install.logDir().c_str(), nullptr);
    }
    std::string File(const std::string& name) const { return install.logDir() + "\\" + name; }
};

}  // namespace

TEST(DebugLogRolling, HistoryFilesMoveUpOneNumber) {
    RollingHost h("log_roll2", 2);
    kvtest::WriteFileText(h.File("debug.001"), "old one");
    kvtest::WriteFileText(h.File("debug.002"), "old two");
    // 20 lines of about 80 bytes: the file passes 1024 bytes once.
    const auto r = RunScript(h.host, h.install, {"lines=20"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ("old one", ReadFileText(h.File("debug.002")));
    const auto rolled = ReadLines(h.File("debug.001"));
    ASSERT_FALSE(rolled.empty());
    EXPECT_EQ("filler 0000 ........................................", MessageOf(rolled[0]));
    EXPECT_GE(ReadFileText(h.File("debug.001")).size(), 1024u);
    const auto live = ReadLines(h.File("debug.log"));
    ASSERT_FALSE(live.empty());
    EXPECT_EQ(20u, rolled.size() + live.size());
    EXPECT_FALSE(kvtest::FileExists(h.File("debug.003")));
}

TEST(DebugLogRolling, AHoleInTheChainIsFilledWithANote) {
    RollingHost h("log_roll3", 3);
    kvtest::WriteFileText(h.File("debug.003"), "old three");
    kvtest::WriteFileText(h.File("debug.001"), "old one");
    const auto r = RunScript(h.host, h.install, {"lines=14"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ("This file was either deleted or moved", ReadFileText(h.File("debug.003")));
    EXPECT_EQ("old one", ReadFileText(h.File("debug.002")));
    EXPECT_EQ("filler 0000 ........................................", MessageOf(ReadLines(h.File("debug.001"))[0]));
}

TEST(DebugLogRolling, NoHistoryStartsTheLogAfresh) {
    RollingHost h("log_roll0", 0);
    const auto r = RunScript(h.host, h.install, {"lines=14", "line=after the roll"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ(std::vector<std::string>{"debug.log"}, kvtest::ListFolder(h.install.logDir(), "debug*"));
    const auto live = ReadLines(h.File("debug.log"));
    ASSERT_FALSE(live.empty());
    EXPECT_EQ("after the roll", MessageOf(live.back()));
    EXPECT_LT(live.size(), 14u);
}

TEST(DebugLogFaults, WritesResumeOnceTheFaultClears) {
    ProductInstall install;
    // The log folder's place is taken by a file: the folder cannot be created.
    const std::string logs = install.logDir();
    kvtest::WriteFileText(logs, "in the way");
    ChildHost host("log_faults");
    const auto r = RunScript(host, install, {"line=lost", "delete=" + logs, "line=kept"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_EQ(std::vector<std::string>{"kept"}, [&] {
        std::vector<std::string> messages;
        for (const auto& l : ReadLines(logs + "\\debug.log")) messages.push_back(MessageOf(l));
        return messages;
    }());
}

TEST(DebugLogFaults, ALockedLogDropsLinesUntilReleased) {
    ProductInstall install;
    CreateDirectoryA(install.logDir().c_str(), nullptr);
    const std::string live = install.logDir() + "\\debug.log";
    kvtest::WriteFileText(live, "");
    ChildHost host("log_locked");
    const auto r = RunScript(host, install, {"hold=" + live, "line=lost", "release", "line=kept"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("held=1"));
    const auto lines = ReadLines(live);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("kept", MessageOf(lines[0]));
}

TEST(DebugLogFaults, AHeldHistoryFileNeitherHangsNorStopsTheLog) {
    RollingHost h("log_heldhist", 1);
    kvtest::WriteFileText(h.File("debug.001"), "held by a viewer");
    const auto r = RunScript(h.host, h.install,
                             {"hold=" + h.File("debug.001"), "lines=30", "release", "lines=30", "line=last"});
    ASSERT_FALSE(r.timedOut);
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const auto live = ReadLines(h.File("debug.log"));
    ASSERT_FALSE(live.empty());
    EXPECT_EQ("last", MessageOf(live.back()));
    // Once released, the next roll replaced the held history file.
    EXPECT_NE("held by a viewer", ReadFileText(h.File("debug.001")));
}
