#include "forward/entry_record.h"

#include <ctype.h>
#include <string.h>

#include "handler/crash_events.h"

namespace kvdiag {

namespace {

constexpr size_t kPidSearched = 4096;  // the head of a long report names its process

const struct {
    const char* text;
    bool atStart;  // or anywhere in the first line
    Severity severity;
} kSeverities[] = {
    {"## EXCEPTION ##", true, kCritical},
    {"Memory error", true, kError},
    {"An error has been detected", true, kError},
    {"KvException", false, kError},
};

Severity SeverityOf(const std::string& text) {
    const std::string first = text.substr(0, text.find('\n'));
    for (const auto& rule : kSeverities) {
        const size_t at = first.find(rule.text);
        if (at != std::string::npos && (!rule.atStart || at == 0)) return rule.severity;
    }
    return kInformational;
}

// The first "pid=N", "PID N" or "(pid N)" that stands as a word.
std::string ProcessIdIn(const std::string& text) {
    const std::string head = text.substr(0, kPidSearched);
    for (size_t at = 0; at < head.size(); ++at) {
        if (at > 0 && (isalnum(static_cast<unsigned char>(head[at - 1])) || head[at - 1] == '_')) continue;
        size_t digits = std::string::npos;
        for (const char* key : {"pid=", "PID ", "pid "})
            if (head.compare(at, strlen(key), key) == 0) digits = at + strlen(key);
        if (digits == std::string::npos) continue;
        size_t end = digits;
        while (end < head.size() && isdigit(static_cast<unsigned char>(head[end]))) ++end;
        if (end > digits && (end == head.size() || !isalnum(static_cast<unsigned char>(head[end]))))
            return head.substr(digits, end - digits);
    }
    return "-";
}

std::string Stem(const std::string& fileName) { return fileName.substr(0, fileName.rfind('.')); }

// A crash event as the collector gets it: its own MSGID and severity, the
// crashed process as APP-NAME and PROCID, its facts as structured data.
bool EventRecord(const LogEntry& entry, SyslogRecord& r) {
    CrashEvent e;
    if (!ParseCrashEvent(entry.text, e)) return false;
    const bool crash = e.kind == "CRASH";
    r.severity = crash ? kCritical : kError;
    r.appName = !e.component.empty() ? e.component : !e.exe.empty() ? Stem(e.exe) : "-";
    r.procId = std::to_string(e.pid);
    r.msgId = e.kind;
    r.data.push_back({std::string("kvcrash@") + kEnterpriseNumber,
                      {{"pid", r.procId}, {"exe", e.exe}, {"component", e.component}, {"code", e.code},
                       {"signature", e.signature}, {"dump", e.dump}, {"size", std::to_string(e.size)},
                       {"result", e.result}}});
    r.text = (e.exe.empty() ? "process" : e.exe) + " (pid " + r.procId +
             (e.component.empty() ? "" : ", component " + e.component) + ") " + (crash ? "crashed" : "hangs");
    if (!e.code.empty()) r.text += " with exception " + e.code;
    r.text += e.dump.empty() ? ": no dump, " + e.result : ": dump " + e.dump + " (" + std::to_string(e.size) + " bytes)";
    if (!e.signature.empty()) r.text += "; " + e.signature;
    return true;
}

}  // namespace

SyslogRecord RecordOf(const LogIdentity& log, const LogEntry& entry) {
    SyslogRecord r;
    r.stamp = entry.stamp;
    r.data.push_back({std::string("kvlog@") + kEnterpriseNumber, {{"file", log.fileName}}});
    if (log.msgId == "event" && EventRecord(entry, r)) return r;
    r.severity = SeverityOf(entry.text);
    r.appName = log.appName;
    r.procId = ProcessIdIn(entry.text);
    r.msgId = log.msgId;
    r.text = entry.text;
    return r;
}

}  // namespace kvdiag
