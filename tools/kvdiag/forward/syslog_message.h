// Log entries as RFC 5424 syslog messages.
#pragma once

#include <string>
#include <vector>

namespace kvdiag {

// What a followed log is to the collector.
struct LogIdentity {
    std::string appName;   // the component, "debug", "syslog" or the application log's name
    std::string msgId;     // which kind of log: debuglog, syslog, applog, event
    std::string fileName;  // the live file's name
};

// Severities of RFC 5424 used here.
enum Severity { kCritical = 2, kError = 3, kInformational = 6 };

// One message before it is written out.
struct SyslogRecord {
    int severity = kInformational;
    std::string stamp;  // RFC 3339
    std::string appName, procId = "-", msgId;
    // SD-ELEMENTs: an SD-ID and its parameters, written in this order.
    struct Element {
        std::string id;
        std::vector<std::pair<std::string, std::string>> params;
    };
    std::vector<Element> data;
    std::string text;  // in the ANSI code page, as the logs are written
};

// The message, in UTF-8 without a byte order mark; control characters other
// than the line feeds between lines become #ooo.
std::string SyslogMessage(const SyslogRecord& record, const std::string& hostName);

// This machine's name as a syslog HOSTNAME.
std::string MachineName();

}  // namespace kvdiag
