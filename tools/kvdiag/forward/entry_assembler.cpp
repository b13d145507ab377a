#include "forward/entry_assembler.h"

#include <windows.h>
#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace kvdiag {

namespace {

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

bool StartsWith(const std::string& text, const char* prefix) { return text.compare(0, strlen(prefix), prefix) == 0; }

// Reports whose every line is stamped (each written by DbgLogWrite): the
// line that opens one, the lines that go on with it, the line that ends it.
const char* const kMemoryReportLines[] = {"For PID ", "Total memory buffers reported", nullptr};
const char* const kMemoryErrorLines[] = {"Stack trace:", "Previous memory element", "Memory element in error",
                                         "Next memory element", "Memory Element - ", "Size: ",
                                         "Allocation stack trace:", "Head of Debug Heap", "Tail of Debug Heap",
                                         "Invalid or Unknown Memory", "Cannot access memory at ", "Lead Buffer:",
                                         "Memory:", "Trail Buffer:", "....", nullptr};
const char* const kKvExceptionLines[] = {"KvException : ", nullptr};
const struct Report {
    const char* opener;
    const char* const* continuations;
    const char* closer;  // nullptr: it ends where a line goes on with nothing
} kReports[] = {
    {"Memory Report: ", kMemoryReportLines, "Total memory buffers reported"},
    {"Memory error - ", kMemoryErrorLines, nullptr},
    {"*** KvException Dump to follow ***", kKvExceptionLines, nullptr},
};

int ReportOpenedBy(const std::string& text) {
    for (size_t i = 0; i < sizeof kReports / sizeof kReports[0]; ++i)
        if (StartsWith(text, kReports[i].opener)) return int(i);
    return -1;
}

bool ContinuesReport(int report, const std::string& text) {
    if (report < 0) return false;
    for (const char* const* line = kReports[report].continuations; *line; ++line)
        if (StartsWith(text, *line)) return true;
    return false;
}

bool IsHexWord(const std::string& word) {
    const bool prefixed = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    const size_t digits = word.size() - (prefixed ? 2 : 0);
    if (!prefixed && digits < 8) return false;
    for (size_t i = prefixed ? 2 : 0; i < word.size(); ++i)
        if (!isxdigit(static_cast<unsigned char>(word[i]))) return false;
    return digits > 0;
}

// A line of a stack dump: return addresses only ("0x00007FF6A1B2C3D4 0x..."),
// or the "Stack modules:" line the library writes after every stack dump.
bool IsStackLine(const std::string& text) {
    if (StartsWith(text, "Stack modules:")) return true;
    size_t words = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find(' ', at), text.size());
        if (end > at && !IsHexWord(text.substr(at, end - at))) return false;
        words += end > at;
        at = end + 1;
    }
    return words > 0;
}

// A line of a hex dump: 16 groups "XX " (blank where the bytes end), six
// blanks, then the bytes as characters.
bool IsHexDumpLine(const std::string& text) {
    if (text.size() != 70 || text.compare(48, 6, "      ") != 0) return false;
    for (size_t i = 0; i < 48; i += 3) {
        const bool blank = text.compare(i, 3, "   ") == 0;
        const bool hex = isxdigit(static_cast<unsigned char>(text[i])) &&
                         isxdigit(static_cast<unsigned char>(text[i + 1])) && text[i + 2] == ' ';
        if (!blank && !hex) return false;
    }
    return true;
}

bool IsBanner(const std::string& line) {
    return line.size() > 8 && StartsWith(line, "*** ") && line.compare(line.size() - 4, 4, " ***") == 0;
}

}  // namespace

void EntryAssembler::Open(const std::string& stamp, const std::string& text, size_t at, int report) {
    stampBeforeOpen_ = lastStamp_;
    open_ = true;
    entry_ = {stamp, text};
    report_ = report;
    openedAt_ = at;
}

void EntryAssembler::Close(std::vector<LogEntry>& done) {
    if (!open_) return;
    // The blank lines that end a report separate it from the next.
    std::string& text = entry_.text;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    done.push_back(std::move(entry_));
    open_ = false;
    report_ = -1;
    openedAt_ = std::string::npos;
}

std::vector<LogEntry> EntryAssembler::Add(const std::vector<std::string>& lines) {
    std::vector<LogEntry> done;
    openedAt_ = std::string::npos;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (!stamped_) {
            Open(UtcNow(), line, i, -1);
            Close(done);
            continue;
        }
        const std::string stamp = LineStamp(line);
        if (stamp.empty()) {
            if (IsBanner(line)) {
                Close(done);
                Open(lastStamp_.empty() ? UtcNow() : lastStamp_, line, i, ReportOpenedBy(line));
            } else if (open_) {
                entry_.text += "\n" + line;
            } else if (!line.empty()) {
                Open(lastStamp_.empty() ? UtcNow() : lastStamp_, line, i, -1);
            }
            continue;
        }
        // After the timestamp a debug log line has a blank, a system log line a tab.
        const bool separator = line.size() > kStampLength && (line[kStampLength] == ' ' || line[kStampLength] == '\t');
        const std::string text = line.substr(kStampLength + separator);
        if (open_ && (ContinuesReport(report_, text) || IsStackLine(text) || IsHexDumpLine(text))) {
            entry_.text += "\n" + text;
            const char* closer = report_ >= 0 ? kReports[report_].closer : nullptr;
            lastStamp_ = stamp;
            if (closer && StartsWith(text, closer)) Close(done);
            continue;
        }
        Close(done);
        Open(stamp, text, i, ReportOpenedBy(text));
        lastStamp_ = stamp;
    }
    return done;
}

std::vector<LogEntry> EntryAssembler::Flush() {
    std::vector<LogEntry> done;
    Close(done);
    return done;
}

void EntryAssembler::Restart(const std::string& stamp) {
    open_ = false;
    report_ = -1;
    openedAt_ = std::string::npos;
    lastStamp_ = stamp;
}

}  // namespace kvdiag
