// kvdiag forward against a real rsyslog collector: stations' logs arrive as
// RFC 5424 messages, every line once, through restarts of either side.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <regex>

#include "kvdiag_process.h"
#include "kvdiag_runner.h"
#include "product_install.h"
#include "running_handler.h"
#include "forward_station.h"
#include "syslog_collector.h"

namespace {

using kvtest::Lines;
using kvtest::Message;
using kvtest::Parse;
using kvtest::Station;
using kvtest::Tally;

std::string MachineName() {
    char name[256];
    DWORD size = sizeof name;
    return GetComputerNameExA(ComputerNameDnsHostname, name, &size) ? name : "";
}

}  // namespace

// Two stations, one collector: two writers roll one log on the first, the
// second writes its debug log and system log. Every line arrives once, with its fields.
TEST(Forward, TwoStationsEveryLineOnceWithItsFields) {
    constexpr int kLines = 150;
    kvtest::SyslogCollector collector;
    Station pumps, valves;
    kvtest::KvdiagProcess pumpForwarder(pumps.Forward(collector.url(), "Pump"));
    kvtest::KvdiagProcess valveForwarder(valves.Forward(collector.url(), "Valve --system"));
    ASSERT_TRUE(pumpForwarder.ReadUntil("connected") && valveForwarder.ReadUntil("connected"));
    const std::string numbered = ":" + std::to_string(kLines) + ":5";
    // Rolling at 2 KB, ten history files hold every line even if the forwarder gets no time until the end.
    pumps.Write({"comp=Pump", "numbered=A" + numbered}, 2);
    pumps.Write({"comp=Pump", "numbered=B" + numbered}, 2);
    valves.Write({"comp=Valve", "numbered=C" + numbered, "sys=## EXCEPTION ## - pump stalled", "line=Memory error: x"}, 2);
    pumps.WaitWriters();
    valves.WaitWriters();
    const Lines raw = collector.WaitForMessages(3 * kLines + 2, 120000);
    pumpForwarder.Finish(0);
    valveForwarder.Finish(0);

    EXPECT_EQ(size_t(3 * kLines + 2), raw.size());
    for (const auto& [tag, numbers] : Tally(raw, "ABC")) {
        EXPECT_EQ(size_t(kLines), numbers.size()) << tag;
        for (const auto& [number, times] : numbers) EXPECT_EQ(1, times) << tag << " " << number;
    }
    const std::regex stamp(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d)");
    int errors = 0;
    for (const std::string& r : raw) {
        Message m;
        ASSERT_TRUE(Parse(r, m)) << r;
        EXPECT_TRUE(std::regex_match(m.stamp, stamp)) << r;
        EXPECT_EQ(0, _stricmp(MachineName().c_str(), m.host.c_str())) << r;
        const bool system = m.msgId == "syslog";
        EXPECT_EQ(m.text[0] == 'A' || m.text[0] == 'B' ? "Pump" : "Valve", m.app) << r;
        EXPECT_EQ(system ? "syslog.Valve.dat" : "debug." + m.app + ".log", m.file) << r;
        EXPECT_EQ(system ? "syslog" : "debuglog", m.msgId) << r;
        EXPECT_EQ("-", m.procId) << r;  // a log shared by processes, lines that name none
        // user facility: critical (a crash), error, informational
        EXPECT_EQ(m.text.find("## EXCEPTION ##") == 0 ? 10 : m.text.find("Memory error") == 0 ? 11 : 14, m.priority)
            << r;
        errors += m.priority < 14;
    }
    EXPECT_EQ(2, errors);
    EXPECT_GE(kvtest::ListFolder(pumps.install.logDir(), "debug.Pump.0*").size(), 3u);  // it did roll
}

// The forwarder killed and started again, then the collector away for ten
// seconds while the log keeps rolling: no line lost, and each interruption
// repeats at most one batch (one run of consecutive lines).
TEST(Forward, NothingLostWhenForwarderOrCollectorRestarts) {
    constexpr int kLines = 600;
    kvtest::SyslogCollector collector;
    Station station;
    auto forwarder = std::make_unique<kvtest::KvdiagProcess>(station.Forward(collector.url(), "Roll"));
    ASSERT_TRUE(forwarder->ReadUntil("connected"));
    station.Write({"comp=Roll", "numbered=R:" + std::to_string(kLines) + ":25"}, 4);
    collector.WaitForMessages(150);
    forwarder->Finish(0);  // killed
    forwarder = std::make_unique<kvtest::KvdiagProcess>(station.Forward(collector.url(), "Roll"));
    collector.WaitForMessages(300);
    ASSERT_TRUE(collector.Stop());
    Sleep(10000);
    ASSERT_TRUE(collector.Start());
    station.WaitWriters();
    Lines raw = collector.WaitForMessages(kLines, 120000);
    for (int waited = 0; Tally(raw, "R")['R'].size() < size_t(kLines) && waited < 60; ++waited, Sleep(1000))
        raw = collector.Messages();
    const kvtest::HostResult result = forwarder->Finish(0);

    std::map<int, int> numbers = Tally(raw, "R")['R'];
    EXPECT_EQ(size_t(kLines), numbers.size()) << result.output;
    // A batch is what was written in a poll or two: a few lines, far below
    // the 150 a forwarder that forgot its cursor would send again.
    constexpr int kMaxBatch = 50;
    int runs = 0, run = 0;
    for (int i = 0; i < kLines; ++i) {
        EXPECT_LE(numbers[i], 2) << i;
        run = numbers[i] > 1 ? run + 1 : 0;
        runs += run == 1;
        EXPECT_LE(run, kMaxBatch) << i;
    }
    EXPECT_LE(runs, 2) << result.output;
    EXPECT_FALSE(kvtest::OutputHas(result, "lines are missing")) << result.output;
}

// An application log archived under a new time-stamped name each time
// ([Debug] SysLogArchive=1): followed into every archive, each line once.
TEST(Forward, AppLogFollowedIntoTimeStampedArchives) {
    constexpr int kLines = 48;
    kvtest::SyslogCollector collector;
    Station station;
    station.install.SetValue("Debug", "SysLogArchive", "1");
    kvtest::KvdiagProcess forwarder(station.Forward(collector.url(), "--apps --for 30"));
    ASSERT_TRUE(forwarder.ReadUntil(": connected"));
    Lines ops{"open=alarm.log:1", "sleep=1500"};  // the forwarder finds the new log
    for (int i = 0; i < kLines; ++i) {
        ops.push_back("write=#" + std::to_string(i) + "# " + std::string(70, '.'));
        if (i % 6 == 5) ops.push_back("sleep=1100");  // the next archive gets another second's name
    }
    station.Write(ops, 1);
    station.WaitWriters();
    const Lines raw = collector.WaitForMessages(kLines, 30000);
    forwarder.Finish(0);
    ASSERT_EQ(size_t(kLines), raw.size());  // a message a line: application lines have no continuations
    for (int i = 0; i < kLines; ++i) {
        Message m;
        EXPECT_TRUE(Parse(raw[size_t(i)], m) && m.text.find("#" + std::to_string(i) + "# ") == 0) << raw[size_t(i)];
    }
    EXPECT_GE(kvtest::ListFolder(station.install.logDir(), "alarm_*").size(), 3u);  // it did archive, by time
}

// Installed as a service, started and stopped by the service manager: lines
// forwarded while it runs, its cursor saved when it stops, gone when removed.
TEST(Forward, RunsAsAServiceOfTheServiceManager) {
    kvtest::SyslogCollector collector;
    Station station;
    // An automatic service left installed would start with every later Wine session.
    struct Removal {
        ~Removal() { kvtest::RunKvdiag("service remove"); }
    } removal;
    kvtest::RunKvdiag("service remove");  // one left by an earlier run
    const auto installed = kvtest::RunKvdiag("service install " + station.Forward(collector.url(), "Svc"));
    ASSERT_EQ(0u, installed.exitCode) << installed.output;
    const SC_HANDLE manager = OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service = OpenServiceA(manager, "KvDiagForward", SERVICE_START | SERVICE_STOP | SERVICE_QUERY_STATUS);
    ASSERT_TRUE(service && StartServiceA(service, 0, nullptr)) << GetLastError();
    const std::string statusFile = station.state / "forward.status";
    for (int i = 0; i < 300 && kvtest::ReadFileText(statusFile).find("state: connected") == std::string::npos; ++i) Sleep(100);
    station.Write({"comp=Svc", "numbered=S:5:0"}, 1);
    station.WaitWriters();
    EXPECT_EQ(5u, collector.WaitForMessages(5).size());
    SERVICE_STATUS status{};
    EXPECT_TRUE(ControlService(service, SERVICE_CONTROL_STOP, &status));
    for (int i = 0; i < 300 && QueryServiceStatus(service, &status) && status.dwCurrentState != SERVICE_STOPPED; ++i) Sleep(100);
    EXPECT_EQ(DWORD(SERVICE_STOPPED), status.dwCurrentState);
    CloseServiceHandle(service);

    const auto shown = kvtest::RunKvdiag("forward --status --state \"" + station.state.path() + "\"");
    for (const char* expected : {"state: stopped", "running: no", "sent: 5 lines", "cursor: debug.Svc.log [file "})
        EXPECT_TRUE(kvtest::OutputHas(shown, expected)) << expected << "\n" << shown.output;
    EXPECT_EQ(0u, kvtest::RunKvdiag("service remove").exitCode);
    EXPECT_EQ(nullptr, OpenServiceA(manager, "KvDiagForward", SERVICE_QUERY_STATUS));
    EXPECT_EQ(DWORD(ERROR_SERVICE_DOES_NOT_EXIST), GetLastError());
    CloseServiceHandle(manager);
}

// Collectors and options it cannot use are refused before anything starts.
TEST(Forward, RefusesWhatItCannotUse) {
    for (const char* args : {"--to http://collector:514", "--to tcp://collector:", "--to tcp://collector:0",
                             "--to udp://collector:70000", "--to tcp://:514", "--to tcp://collector:514 --ca x.pem",
                             "--to tcp://collector:514 Pump --all", "Pump", "--to tls://collector:6514 --bogus",
                             "--to tcp://collector:514 --max-record 1000", "--to udp://collector:514 --max-record 9k",
                             "--to tcp://::1", "--to tcp://collector --framing crlf", "--to udp://collector --framing lf"}) {
        const auto result = kvtest::RunKvdiag(std::string("forward ") + args);
        EXPECT_EQ(2u, result.exitCode) << args << "\n" << result.output;
        EXPECT_TRUE(kvtest::OutputHas(result, "usage: kvdiag forward")) << args;
    }
}

namespace {

// The messages of raw that parse and pass the filter.
std::vector<Message> Records(const Lines& raw, const std::function<bool(const Message&)>& wanted) {
    std::vector<Message> found;
    for (const std::string& r : raw) {
        Message m;
        if (Parse(r, m) && wanted(m)) found.push_back(m);
    }
    return found;
}

std::vector<Message> Starting(const Lines& raw, const std::string& text) {
    return Records(raw, [&](const Message& m) { return m.text.compare(0, text.size(), text) == 0; });
}

}  // namespace

// A registered host that crashes: the crash handler's event reaches the
// collector within 15 s as one CRASH record, critical, with the crash's facts.
TEST(Forward, CrashOfARegisteredHostArrivesAsOneCrashRecord) {
    kvtest::SyslogCollector collector;
    Station station;
    station.install.SetValue("Debug", "MiniDumpType", "1");
    kvtest::KvdiagProcess forwarder(station.Forward(collector.url(), "Crash"));
    ASSERT_TRUE(forwarder.ReadUntil(": connected"));
    kvtest::ChildHost host("kvfwcrash");
    const auto crashed = host.Run({"handler_crash", station.install.iniPath(), "access_violation", "renamed"}, 120000);
    ASSERT_EQ(0xC0000005u, crashed.exitCode) << crashed.output;
    const auto isCrash = [](const Message& m) { return m.msgId == "CRASH"; };
    std::vector<Message> crashes;
    for (const ULONGLONG ended = GetTickCount64(); crashes.empty() && GetTickCount64() - ended < 15000; Sleep(200))
        crashes = Records(collector.Messages(), isCrash);
    Sleep(2000);  // and no second one
    crashes = Records(collector.Messages(), isCrash);
    forwarder.Finish(0);
    kvtest::EndRunningCrashHandler();  // the one the host started serves on for a minute
    ASSERT_EQ(1u, crashes.size());
    const Message& m = crashes[0];
    const std::string dump = station.install.logDir() + "\\user.Renamed.dmp";
    std::string sentDump = m.Param("dump");
    for (size_t at; (at = sentDump.find("\\\\")) != std::string::npos;) sentDump.erase(at, 1);
    EXPECT_EQ(10, m.priority);  // user facility, critical
    EXPECT_EQ("Renamed", m.app);
    EXPECT_EQ(m.Param("pid"), m.procId);
    EXPECT_EQ("kvfwcrash.exe", m.Param("exe"));
    EXPECT_EQ("0xc0000005", m.Param("code"));
    EXPECT_EQ(0u, m.Param("signature").find("0xc0000005 ")) << m.Param("signature");
    EXPECT_EQ(0, _stricmp(dump.c_str(), sentDump.c_str())) << sentDump;
    EXPECT_EQ(std::to_string(kvtest::ReadFileText(dump).size()), m.Param("size"));
}

// What a process writes reads right: a memory report and a KvException dump
// are one record each (the dump's banner starting its own), each kind of
// error line has its severity, the process id is given where the text names
// it, and an application-log line without its line end goes once, before
// its end arrives, and not again after.
TEST(Forward, RecordsReadRightAtTheCollector) {
    kvtest::SyslogCollector collector;
    Station station;
    kvtest::KvdiagProcess forwarder(station.Forward(collector.url(), "--all --system --apps"));
    ASSERT_TRUE(forwarder.ReadUntil(": connected"));
    kvtest::ChildHost host("kvfwview");
    const auto result = host.Run({"log_script", station.install.iniPath(), "pid", "comp=View", "open=alarm.log:1024",
                                  "line=before the report", "memreport=40", "kvexception",
                                  "line=Memory error - overwrite memory - x", "sys=## EXCEPTION ## - dump skipped",
                                  "part=half a line", "sleep=6000", "write=", "write=next line", "close"});
    ASSERT_EQ(0u, result.exitCode) << result.output;
    ASSERT_EQ(0u, result.output.find("pid=")) << result.output;
    const std::string pid = std::to_string(kvtest::NumberAfter(result.output, "pid="));
    Lines raw;
    for (int waited = 0; Starting(raw, "next line").empty() && waited < 150; ++waited, Sleep(200))
        raw = collector.Messages();
    forwarder.Finish(0);

    const struct {
        const char* start;
        int priority;
        const char* procId;  // "" for this host's
    } kinds[] = {{"before the report", 14, "-"},           {"Memory Report: ", 14, ""},
                 {"*** KvException Dump to follow ***", 11, ""}, {"An error has been detected", 11, "-"},
                 {"Memory error - overwrite", 11, "-"},    {"## EXCEPTION ## - dump skipped", 10, "-"},
                 {"half a line", 14, "-"},                 {"next line", 14, "-"}};
    for (const auto& kind : kinds) {
        const std::vector<Message> found = Starting(raw, kind.start);
        ASSERT_EQ(1u, found.size()) << kind.start;
        EXPECT_EQ(kind.priority, found[0].priority) << kind.start;
        EXPECT_EQ(*kind.procId ? kind.procId : pid, found[0].procId) << kind.start;
        EXPECT_EQ(found[0].msgId == "applog" ? "alarm" : "View", found[0].app) << kind.start;
    }
    EXPECT_EQ("before the report", Starting(raw, "before the report")[0].text);  // the banner not glued on
    const std::string report = Starting(raw, "Memory Report: ")[0].text;
    EXPECT_NE(std::string::npos, report.find("#012Total memory buffers reported ")) << report;
    EXPECT_NE(std::string::npos, Starting(raw, "*** KvException")[0].text.find("#012KvException : pid=" + pid));
    for (const char* continuation : {"For PID", "Buffer,", "Total memory", "KvException :"})
        EXPECT_TRUE(Starting(raw, continuation).empty()) << continuation;
    EXPECT_TRUE(Records(raw, [](const Message& m) { return m.msgId == "applog" && m.text.empty(); }).empty());
}

// Over UDP (one datagram a message, nothing acknowledged) a paced log arrives
// whole on the loopback. syslog-ng reads both framings: its network() source
// one message a line (--framing lf), its syslog() source octet counting (the
// default). Every line arrives once, and a report of many lines as one record.
TEST(Forward, EveryLineOnceOverUdpAndToSyslogNgInEitherFraming) {
    const struct {
        const char *kind, *options;
        int lines, pauseMs;
        DWORD rollKb;
        bool report;
    } cases[] = {{"udp", "Udp --for 30", 40, 5, 2, false},
                 {"ng-lf", "Ng --framing lf", 200, 2, 64, true},
                 {"ng-octet", "Ng", 200, 2, 64, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.kind);
        kvtest::SyslogCollector collector(c.kind);
        Station station;
        const std::string comp = std::string(c.options).substr(0, std::string(c.options).find(' '));
        kvtest::KvdiagProcess forwarder(station.Forward(collector.url(), c.options));
        ASSERT_TRUE(forwarder.ReadUntil(": connected"));
        station.Write({"comp=" + comp, "numbered=N:" + std::to_string(c.lines) + ":" + std::to_string(c.pauseMs)}, c.rollKb);
        station.WaitWriters();
        if (c.report) {
            kvtest::ChildHost reporter(std::string("kvfwreport") + c.kind);
            ASSERT_EQ(0u, reporter.Run({"log_script", station.install.iniPath(), "comp=" + comp, "memreport=30"}).exitCode);
        }
        // The numbered lines; with the report "Callstack instrumentation has been enabled" and the report.
        const size_t expected = size_t(c.lines) + (c.report ? 2 : 0);
        const Lines raw = collector.WaitForMessages(expected, 60000);
        forwarder.Finish(0);
        EXPECT_EQ(expected, raw.size());
        const auto seen = Tally(raw, "N");
        EXPECT_EQ(size_t(c.lines), seen.empty() ? 0 : seen.at('N').size());
        for (const auto& [number, times] : seen.empty() ? std::map<int, int>{} : seen.at('N')) EXPECT_EQ(1, times) << number;
        const std::vector<Message> reports = Starting(raw, "Memory Report: ");
        ASSERT_EQ(c.report ? 1u : 0u, reports.size());
        if (c.report) EXPECT_NE(std::string::npos, reports[0].text.find("Total memory buffers reported "));
    }
}
