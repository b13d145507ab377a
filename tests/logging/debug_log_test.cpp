// The debug log writer in child hosts: line shapes, percent signs, over-long
// messages, rolling and faults.
#include <gtest/gtest.h>

#include "log_test_util.h"

using namespace kvtest;
using namespace logtest;

TEST(DebugLog, EachMessageIsOneStampedLineWrittenAsGiven) {
    LogHost h("log_shapes");
    ASSERT_TRUE(h.Ok({"line=ends in newline<LF>", "format=<LF>after empty", "format=<LF>Z", "format=<LF>",
                      "file=raw text<LF>second raw<LF>", "line=50%% done %s %n %d %", "format=rate 75%%",
                      "wide=9%%%% %s %n", "long=5000", "long=991", "long=992", "widelong", "comp=Shapes",
                      "line=own file"}));
    // Line ends are CR LF on disk, like every text file of the product.
    EXPECT_EQ(std::string::npos, ReadFileText(h.File("debug.log")).find("\n\n")) << "every LF follows a CR";
    // A newline and one character is a bare newline; no percent sign is a conversion. Overlong messages are cut
    // to 1024 bytes (stamp, blank, message, newline, terminator); an overflowing wide message is dropped but its
    // line remains. A component set later names new files only.
    const std::string longest(991, 'L');
    EXPECT_EQ((Lines{"ends in newline", "~", "after empty", "~", "~", "~raw text", "~second raw", "50% done %s %n %d %",
                     "rate 75%", "w=7 9% %s %n", longest, longest, longest, "", "own file"}),
              h.Messages("debug.log"));
    EXPECT_FALSE(FileExists(h.File("debug.Shapes.log")));
}

TEST(DebugLog, LogHandlesStayOutOfChildProcesses) {
    LogHost h("log_inherit");
    ASSERT_TRUE(h.Ok({"line=opens the log", "open=app.log:10", "handles=debug.log", "handles=app.log"}));
    EXPECT_TRUE(InOrder(h.last.output, {"found=1 inheritable=0", "found=1 inheritable=0"})) << h.last.output;
}

TEST(DebugLog, LogErrorsOffWritesNoFileAtAll) {
    LogHost h("log_silent");
    h.host.SetSetting("LogErrors", 0);
    ASSERT_TRUE(h.Ok({"line=x", "file=raw", "wide=w"}));
    EXPECT_FALSE(FileExists(h.File("debug.log")));
}

TEST(DebugLogRolling, HistoryMovesUpOneNumberAndAHoleGetsANote) {
    LogHost h("log_roll3", 3);
    WriteFileText(h.File("debug.001"), "old one");
    WriteFileText(h.File("debug.003"), "old three");  // debug.002 is missing
    // 20 lines of about 80 bytes: the file passes 1024 bytes once.
    ASSERT_TRUE(h.Ok({"lines=20"}));
    EXPECT_EQ("This file was either deleted or moved", ReadFileText(h.File("debug.003")));
    EXPECT_EQ("old one", ReadFileText(h.File("debug.002")));
    EXPECT_FALSE(FileExists(h.File("debug.004")));
    const auto rolled = h.Messages("debug.001"), live = h.Messages("debug.log");
    ASSERT_FALSE(rolled.empty() || live.empty());
    EXPECT_EQ("filler 0000 ........................................", rolled.front());
    EXPECT_GE(ReadFileText(h.File("debug.001")).size(), 1024u);
    EXPECT_EQ(20u, rolled.size() + live.size());
}

TEST(DebugLogRolling, NoHistoryStartsTheLogAfresh) {
    LogHost h("log_roll0", 0);
    ASSERT_TRUE(h.Ok({"lines=14", "line=after the roll"}));
    EXPECT_EQ(Lines{"debug.log"}, ListFolder(h.install.logDir(), "debug*"));
    const auto live = h.Messages("debug.log");
    EXPECT_LT(live.size(), 14u);
    EXPECT_EQ("after the roll", live.empty() ? "" : live.back());
}

TEST(DebugLogFaults, WritesResumeOnceTheFaultClearsAndNothingHangs) {
    // The log folder's place is taken by a file: the folder cannot be created.
    LogHost folder("log_faults");
    WriteFileText(folder.install.logDir(), "in the way");
    ASSERT_TRUE(folder.Ok({"line=lost", "delete=" + folder.install.logDir(), "line=kept"}));
    EXPECT_EQ(Lines{"kept"}, folder.Messages("debug.log"));

    // Another program holds the live log without sharing it.
    LogHost locked("log_locked", 1);
    WriteFileText(locked.File("debug.log"), "");
    ASSERT_TRUE(locked.Ok({"hold=" + locked.File("debug.log"), "line=lost", "release", "line=kept"}));
    EXPECT_TRUE(InOrder(locked.last.output, {"held=1"})) << locked.last.output;
    EXPECT_EQ(Lines{"kept"}, locked.Messages("debug.log"));

    // A held history file neither hangs nor stops the log; once released, the
    // next roll replaces it.
    LogHost history("log_heldhist", 1);
    WriteFileText(history.File("debug.001"), "held by a viewer");
    ASSERT_TRUE(history.Ok({"hold=" + history.File("debug.001"), "lines=30", "release", "lines=30", "line=last"}));
    const auto live = history.Messages("debug.log");
    EXPECT_EQ("last", live.empty() ? "" : live.back());
    EXPECT_NE("held by a viewer", ReadFileText(history.File("debug.001")));
}
