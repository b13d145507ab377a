// kvdiag forward against a real rsyslog collector: stations' logs arrive as
// RFC 5424 messages, every line once, through restarts of either side.
#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "kvdiag_process.h"
#include "kvdiag_runner.h"
#include "product_install.h"
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
        EXPECT_EQ(system ? "syslog" : m.text[0] == 'A' || m.text[0] == 'B' ? "Pump" : "Valve", m.app) << r;
        EXPECT_EQ(system ? "syslog.Valve.dat" : "debug." + m.app + ".log", m.file) << r;
        EXPECT_EQ(system ? "syslog" : "debuglog", m.msgId) << r;
        const bool error = m.text.find("## EXCEPTION ##") == 0 || m.text.find("Memory error") == 0;
        EXPECT_EQ(error ? 11 : 14, m.priority) << r;  // user facility: error, informational
        errors += error;
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

// Over UDP (one datagram a message, nothing acknowledged): a paced log
// arrives whole on the loopback.
TEST(Forward, UdpSendsEachLineAsADatagram) {
    kvtest::SyslogCollector collector("udp");
    Station station;
    kvtest::KvdiagProcess forwarder(station.Forward(collector.url(), "Udp --for 30"));
    ASSERT_TRUE(forwarder.ReadUntil(": connected"));
    station.Write({"comp=Udp", "numbered=U:40:5"}, 2);
    station.WaitWriters();
    const Lines raw = collector.WaitForMessages(40, 20000);
    forwarder.Finish(0);
    const auto seen = Tally(raw, "U");
    EXPECT_EQ(40u, seen.empty() ? 0 : seen.at('U').size()) << raw.size() << " messages";
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
    for (const char* args : {"--to http://collector:514", "--to tcp://collector", "--to tcp://collector:0",
                             "--to udp://collector:70000", "--to tcp://:514", "--to tcp://collector:514 --ca x.pem",
                             "--to tcp://collector:514 Pump --all", "Pump", "--to tls://collector:6514 --bogus",
                             "--to tcp://collector:514 --max-record 1000", "--to udp://collector:514 --max-record 9k"}) {
        const auto result = kvtest::RunKvdiag(std::string("forward ") + args);
        EXPECT_EQ(2u, result.exitCode) << args << "\n" << result.output;
        EXPECT_TRUE(kvtest::OutputHas(result, "usage: kvdiag forward")) << args;
    }
}
