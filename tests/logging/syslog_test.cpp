// The system log and application logs, in child hosts.
#include <gtest/gtest.h>

#include <set>

#include "log_test_util.h"

using namespace kvtest;
using namespace logtest;

// Routed to an application log that is closed and reopened after every line,
// lines stamped one by one would span several milliseconds, as the same
// number of separate events written the same way shows.
TEST(Syslog, EachLineOfAnEventIsALineCarryingItsOneStamp) {
    LogHost h("log_syslog");
    Lines ops = {"openshut=event.log:1000", "route", "sys=", "close", "openshut=events.log:1000", "route"};
    for (int i = 0; i < 150; ++i) ops[2] += "l" + std::to_string(i) + "<LF>", ops.push_back("sys=l" + std::to_string(i));
    ops.insert(ops.end(), {"close", "sys=first<CR><LF>second", "sys=<CR><LF><LF>", "sysoff=never", "sysw=wide 5%%",
                           "sys=keep %s %n", "comp=Alarm", "sys=own file", "comp=Empty", "sys=<LF>"});
    ASSERT_TRUE(h.Ok(ops));
    EXPECT_EQ((Lines{"first", "second", "wide 5%", "keep %s %n"}), h.Messages("syslog.dat", '\t'));
    EXPECT_EQ(Lines{"own file"}, h.Messages("syslog.Alarm.dat", '\t'));
    // An event without text still creates its file.
    EXPECT_TRUE(FileExists(h.File("syslog.Empty.dat")) && ReadFileText(h.File("syslog.Empty.dat")).empty());
    const auto stamps = [&](const char* name) {
        std::set<std::string> found;
        for (const auto& line : ReadLines(h.File(name))) found.insert(line.substr(0, 30));
        return found;
    };
    ASSERT_GT(stamps("events.log").size(), 1u) << "150 events within one clock step: the check cannot tell";
    EXPECT_EQ(150u, ReadLines(h.File("event.log")).size());
    EXPECT_EQ(1u, stamps("event.log").size());
}

// Null arguments are ignored: nothing reaches a log, and a null application
// syslog routes events back to the syslog file.
TEST(Syslog, RoutedEventsGoToTheApplicationLogUntilItClosesAndNullsWriteNothing) {
    LogHost h("log_sysroute");
    ASSERT_TRUE(h.Ok({"open=events.log:100", "write=own text", "route", "sys=routed a<LF>routed b", "sys=<LF>", "close",
                      "sys=direct again", "open=app.log:10", "route", "nulls", "line=after", "sys=after"}));
    EXPECT_EQ((Lines{"~own text", "routed a", "routed b"}), h.Messages("events.log", '\t'));
    EXPECT_EQ((Lines{"direct again", "after"}), h.Messages("syslog.dat", '\t'));
    EXPECT_HAS(h.last.output, "null open=0");
    EXPECT_EQ(Lines{"after"}, h.Messages("debug.log"));
    EXPECT_EQ(Lines{}, ReadLines(h.File("app.log")));
}

// A reopened log is closed after every line: readable by others, but
// write-locked while a kept one is shared.
TEST(AppLog, ArchivesToOneBakFileReplacedEachTimeAndSharesAsOpened) {
    LogHost h("log_appbak");
    const std::string block(600, 'a');
    // A name in a folder that does not exist gives no handle, and writing to
    // or closing that null handle is ignored. With a 1 KB limit the file
    // archives once it holds more than 1024 bytes.
    ASSERT_TRUE(h.Ok({"open=missing\\dir.log:1", "write=ignored", "close", "open=alarm.log:1", "write=" + block,
                      "write=first archive", "write=" + block, "write=" + block, "write=" + block, "write=tail",
                      "close", "openshut=shut.log:100", "write=one", "probe=" + h.File("shut.log"), "close",
                      "open=kept.log:100", "write=two", "probe=" + h.File("kept.log"), "close"}));
    EXPECT_TRUE(InOrder(h.last.output, {"opened=0", "opened=1", "read=1 write=0", "read=1 write=1"})) << h.last.output;
    EXPECT_EQ((Lines{block, block}), ReadLines(h.File("alarm.bak")));  // the second archive replaced the first
    EXPECT_EQ(Lines{"tail"}, ReadLines(h.File("alarm.log")));
    EXPECT_EQ(Lines{"one"}, ReadLines(h.File("shut.log")));
}

TEST(AppLog, LimitsOfTwoGiBAndMoreKeepASmallFileLive) {
    // Limits in KB as opened, or as set afterwards for the system log's use.
    const std::vector<std::string> limits[] = {{"open=big.log:2097152"},
                                               {"open=big.log:4194303"},
                                               {"open=big.log:0x7fffffff"},
                                               {"open=big.log:1", "limit=3000000"}};
    for (std::vector<std::string> ops : limits) {
        SCOPED_TRACE(ops.back());
        LogHost h("log_appbig");
        ops.insert(ops.end(), {"write=one", "write=two", "close"});
        ASSERT_TRUE(h.Ok(ops));
        EXPECT_EQ((Lines{"one", "two"}), ReadLines(h.File("big.log")));
        EXPECT_FALSE(FileExists(h.File("big.bak")));
    }
}

TEST(AppLog, TimeStampedArchivesWhenTheProductAsksForThem) {
    LogHost h("log_appstamp");
    h.install.SetValue("Debug", "SysLogArchive", "1");
    ASSERT_TRUE(h.Ok({"open=alarm.log:1", "write=" + std::string(1100, 'a'), "close"}));
    const auto archives = ListFolder(h.install.logDir(), "alarm_*");
    ASSERT_EQ(1u, archives.size());
    // alarm_YYMMDD_HHMMSS .log: the time pattern ends in a blank.
    EXPECT_TRUE(std::regex_match(archives[0], std::regex(R"(alarm_\d{6}_\d{6} \.log)"))) << archives[0];
    EXPECT_FALSE(FileExists(h.File("alarm.bak")));
}
