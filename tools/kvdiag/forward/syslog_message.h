// Log lines as RFC 5424 syslog messages.
#pragma once

#include <string>
#include <vector>

namespace kvdiag {

// What a followed log is to the collector.
struct LogIdentity {
    std::string appName;   // the component, "syslog" or the application log's name
    std::string msgId;     // which kind of log
    std::string fileName;  // the live file's name
};

// One entry of a log: a timestamped line and the lines without a timestamp
// after it (multi-line reports such as stack dumps), joined by line feeds.
struct LogEntry {
    std::string stamp;  // RFC 3339
    std::string text;
};

// Groups lines into entries. Lines before the first timestamped one continue
// the last entry of the previous call (lastStamp carries its time; without
// one they take the current time in UTC).
std::vector<LogEntry> GroupEntries(const std::vector<std::string>& lines, std::string& lastStamp);
// Each line an entry of its own, stamped with the time it was read: for
// application logs, whose lines carry no time and no continuation lines.
std::vector<LogEntry> LineEntries(const std::vector<std::string>& lines);

// The RFC 5424 message of an entry, in UTF-8 without a byte order mark;
// control characters other than the line feeds between lines become #ooo.
std::string SyslogMessage(const LogIdentity& log, const std::string& hostName, const LogEntry& entry);

// This machine's name as a syslog HOSTNAME.
std::string MachineName();

}  // namespace kvdiag
