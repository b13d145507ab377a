// The system log and application logs, in child hosts.
#include <gtest/gtest.h>

#include "log_test_util.h"

using kvtest::ChildHost;
using kvtest::ProductInstall;
using kvtest::ReadFileText;
using kvtest::ReadLines;

namespace {

// "stamp<TAB>text" lines: the texts, and whether all stamps were valid.
std::vector<std::string> SyslogTexts(const std::string& path, std::vector<std::string>* stamps = nullptr) {
    std::vector<std::string> texts;
    for (const auto& line : ReadLines(path)) {
        std::smatch m;
        if (!std::regex_search(line, m, logtest::StampPattern()) || m.position(0) != 0 || line.size() < 31 ||
            line[30] != '\t') {
            texts.push_back("<no stamp> " + line);
            continue;
        }
        if (stamps) stamps->push_back(line.substr(0, 30));
        texts.push_back(line.substr(31));
    }
    return texts;
}

}  // namespace

TEST(Syslog, EachLineOfAnEventIsOneStampedLine) {
    ProductInstall install;
    ChildHost host("log_syslog");
    const auto r = logtest::RunScript(host, install,
                                      {"sys=first<CR><LF>second", "sys=<CR><LF><LF>", "sysoff=never", "sysw=wide 5%%",
                                       "sys=keep %s %n", "comp=Alarm", "sys=own file"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    std::vector<std::string> stamps;
    const auto texts = SyslogTexts(install.logDir() + "\\syslog.dat", &stamps);
    EXPECT_EQ((std::vector<std::string>{"first", "second", "wide 5%", "keep %s %n"}), texts);
    ASSERT_GE(stamps.size(), 2u);
    EXPECT_EQ(stamps[0], stamps[1]);
    EXPECT_EQ(std::vector<std::string>{"own file"}, SyslogTexts(install.logDir() + "\\syslog.Alarm.dat"));
}

TEST(Syslog, AnEmptyEventStillCreatesTheSyslogFile) {
    ProductInstall install;
    ChildHost host("log_sysempty");
    const auto r = logtest::RunScript(host, install, {"sys=<LF>"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_TRUE(kvtest::FileExists(install.logDir() + "\\syslog.dat"));
    EXPECT_EQ("", ReadFileText(install.logDir() + "\\syslog.dat"));
}

TEST(Syslog, RoutedEventsGoToTheApplicationLogUntilItCloses) {
    ProductInstall install;
    ChildHost host("log_sysroute");
    const auto r = logtest::RunScript(host, install,
                                      {"open=events.log:100", "write=own text", "route", "sys=routed a<LF>routed b",
                                       "sys=<LF>", "close", "sys=direct again"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const auto lines = ReadLines(install.logDir() + "\\events.log");
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("own text", lines[0]);
    EXPECT_EQ("routed a", lines[1].substr(31));
    EXPECT_EQ(std::vector<std::string>{"direct again"}, SyslogTexts(install.logDir() + "\\syslog.dat"));
}

TEST(AppLog, ArchivesToOneBakFileReplacedEachTime) {
    ProductInstall install;
    ChildHost host("log_appbak");
    const std::string block(600, 'a');
    // 1 KB limit: the file archives once it holds more than 1024 bytes.
    const auto r = logtest::RunScript(host, install,
                                      {"open=alarm.log:1", "write=" + block, "write=first archive", "write=" + block,
                                       "write=" + block, "write=" + block, "write=tail", "close"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const auto bak = ReadLines(install.logDir() + "\\alarm.bak");
    ASSERT_EQ(2u, bak.size());
    EXPECT_EQ(block, bak[1]);  // the second archive replaced the first
    EXPECT_EQ(std::vector<std::string>{"tail"}, ReadLines(install.logDir() + "\\alarm.log"));
    EXPECT_EQ(std::string::npos, ReadFileText(install.logDir() + "\\alarm.bak").find("first archive"));
}

TEST(AppLog, BadHandlesAndUnopenableFilesAreIgnored) {
    ProductInstall install;
    ChildHost host("log_appbad");
    // A name with a folder that does not exist cannot be opened: no handle.
    const auto r = logtest::RunScript(host, install, {"open=missing\\dir.log:1", "write=ignored", "close"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("opened=0"));
}

TEST(AppLog, TimeStampedArchivesWhenTheProductAsksForThem) {
    ProductInstall install;
    install.SetValue("Debug", "SysLogArchive", "1");
    ChildHost host("log_appstamp");
    const auto r = logtest::RunScript(host, install, {"open=alarm.log:1", "write=" + std::string(1100, 'a'), "close"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const auto archives = kvtest::ListFolder(install.logDir(), "alarm_*");
    ASSERT_EQ(1u, archives.size());
    // alarm_YYMMDD_HHMMSS .log: the time pattern ends in a blank.
    EXPECT_TRUE(std::regex_match(archives[0], std::regex(R"(alarm_\d{6}_\d{6} \.log)"))) << archives[0];
    EXPECT_FALSE(kvtest::FileExists(install.logDir() + "\\alarm.bak"));
}

TEST(AppLog, AReopenedLogIsReadableButWriteLockedWhileAKeptOneIsShared) {
    ProductInstall install;
    ChildHost host("log_appshare");
    const std::string shut = install.logDir() + "\\shut.log", kept = install.logDir() + "\\kept.log";
    const auto r = logtest::RunScript(host, install,
                                      {"openshut=shut.log:100", "write=one", "probe=" + shut, "close", "open=kept.log:100",
                                       "write=two", "probe=" + kept, "close"});
    ASSERT_EQ(0u, r.exitCode) << r.output;
    const size_t reopened = r.output.find("read=1 write=0 ");
    EXPECT_NE(std::string::npos, reopened) << r.output;
    EXPECT_NE(std::string::npos, r.output.find("read=1 write=1 ", reopened)) << r.output;
    EXPECT_EQ(std::vector<std::string>{"one"}, ReadLines(shut));
}
