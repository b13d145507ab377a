#include "forward/syslog_message.h"

#include <windows.h>
#include <stdio.h>
#include <string.h>

namespace kvdiag {

namespace {

constexpr int kFacilityUser = 1;
constexpr int kSeverityError = 3;
constexpr int kSeverityInfo = 6;
// The log timestamp: "2024-03-05 14:07:09.042", a tab, "+10:00".
constexpr char kStampShape[] = "dddd-dd-dd dd:dd:dd.ddd\t+dd:dd";
constexpr size_t kStampLength = sizeof kStampShape - 1;

// The RFC 3339 form of a log line's timestamp, or empty when the line has none.
std::string LineStamp(const std::string& line) {
    if (line.size() < kStampLength) return {};
    for (size_t i = 0; i < kStampLength; ++i) {
        const char c = line[i], shape = kStampShape[i];
        const bool fits = shape == 'd' ? (c >= '0' && c <= '9') : shape == '+' ? (c == '+' || c == '-') : c == shape;
        if (!fits) return {};
    }
    return line.substr(0, 10) + "T" + line.substr(11, 12) + line.substr(24, 6);
}

std::string UtcNow() {
    SYSTEMTIME t;
    GetSystemTime(&t);
    char stamp[32];
    snprintf(stamp, sizeof stamp, "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
             t.wSecond, t.wMilliseconds);
    return stamp;
}

// Log files are written in the ANSI code page.
std::string AnsiToUtf8(const std::string& text) {
    if (text.empty()) return text;
    const int wide = MultiByteToWideChar(CP_ACP, 0, text.data(), int(text.size()), nullptr, 0);
    if (wide <= 0) return text;
    std::wstring w(size_t(wide), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), int(text.size()), &w[0], wide);
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, w.data(), wide, nullptr, 0, nullptr, nullptr);
    std::string utf8(size_t(bytes > 0 ? bytes : 0), '\0');
    if (bytes > 0) WideCharToMultiByte(CP_UTF8, 0, w.data(), wide, &utf8[0], bytes, nullptr, nullptr);
    return utf8;
}

// A header field: printable US-ASCII without blanks, at most maxLength, "-" when empty.
std::string HeaderField(const std::string& text, size_t maxLength) {
    std::string field;
    for (char c : text.substr(0, maxLength)) field += (c > 32 && c < 127) ? c : '_';
    return field.empty() ? "-" : field;
}

// A structured-data parameter value escapes '"', '\' and ']'.
std::string ParamValue(const std::string& text) {
    std::string value;
    for (char c : AnsiToUtf8(text)) {
        if (c == '"' || c == '\\' || c == ']') value += '\\';
        value += c;
    }
    return value;
}

std::string EscapeControls(const std::string& text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (unsigned char c : text) {
        if ((c < 32 && c != '\n') || c == 127) {
            char octal[8];
            snprintf(octal, sizeof octal, "#%03o", c);
            escaped += octal;
        } else {
            escaped += char(c);
        }
    }
    return escaped;
}

bool IsError(const std::string& text) {
    return text.compare(0, 15, "## EXCEPTION ##") == 0 || text.find("Memory error") != std::string::npos;
}

}  // namespace

std::vector<LogEntry> GroupEntries(const std::vector<std::string>& lines, std::string& lastStamp) {
    std::vector<LogEntry> entries;
    for (const std::string& line : lines) {
        const std::string stamp = LineStamp(line);
        if (!stamp.empty()) {
            // After the timestamp a debug log line has a blank, a system log line a tab.
            const size_t from = kStampLength + (line.size() > kStampLength && (line[kStampLength] == ' ' || line[kStampLength] == '\t'));
            entries.push_back({stamp, line.substr(from)});
            lastStamp = stamp;
        } else if (!entries.empty()) {
            entries.back().text += "\n" + line;
        } else {
            entries.push_back({lastStamp.empty() ? UtcNow() : lastStamp, line});
        }
    }
    return entries;
}

std::vector<LogEntry> LineEntries(const std::vector<std::string>& lines) {
    std::vector<LogEntry> entries;
    const std::string now = UtcNow();
    for (const std::string& line : lines) entries.push_back({now, line});
    return entries;
}

std::string SyslogMessage(const LogIdentity& log, const std::string& hostName, const LogEntry& entry) {
    const int priority = kFacilityUser * 8 + (IsError(entry.text) ? kSeverityError : kSeverityInfo);
    std::string message = "<" + std::to_string(priority) + ">1 " + entry.stamp + " " + HeaderField(hostName, 255) + " " +
                          HeaderField(log.appName, 48) + " - " + HeaderField(log.msgId, 32) + " [kvlog@32473 file=\"" +
                          ParamValue(log.fileName) + "\"]";
    if (!entry.text.empty()) message += " " + EscapeControls(AnsiToUtf8(entry.text));
    return message;
}

std::string MachineName() {
    char name[256];
    DWORD size = sizeof name;
    if (GetComputerNameExA(ComputerNameDnsHostname, name, &size) && size) return name;
    size = sizeof name;
    return GetComputerNameA(name, &size) ? name : "-";
}

}  // namespace kvdiag
