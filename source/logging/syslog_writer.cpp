// The system log: each line of an event becomes one timestamped line, either
// in the application log the process chose or in the shared syslog file.
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "KvLogging.h"
#include "logging/app_log.h"
#include "logging/debug_log.h"
#include "logging/shared_stream.h"

namespace {

constexpr size_t kLineSize = 1024;

// Calls emit(line) for each non-empty line of text; text is cut in place.
template <typename Emit>
void ForEachLine(char* text, Emit emit) {
    char* p = text;
    while (*p) {
        while (*p == '\r' || *p == '\n') ++p;
        if (!*p) break;
        char* end = p + strcspn(p, "\r\n");
        const bool last = *end == '\0';
        *end = '\0';
        emit(p);
        if (last) break;
        p = end + 1;
    }
}

// Writes a timestamp, a tab, the line and a newline into out; a line too long
// for the buffer is cut so that the newline still fits.
size_t FormatSyslogLine(char (&out)[kLineSize], const char* stamp, const char* line) {
    int n = snprintf(out, sizeof out, "%s\t%s\n", stamp, line);
    if (n < 0) return 0;
    if (size_t(n) >= sizeof out) {
        n = int(sizeof out - 1);
        out[n - 1] = '\n';
    }
    return size_t(n);
}

// The event as plain text (already formatted).
void WriteEvent(char* text, const char* stamp) {
    LogFile* routed = kv::ApplicationSyslog;
    if (routed && routed->stream) {
        ForEachLine(text, [&](const char* line) {
            LogFile* current = kv::ApplicationSyslog;  // the routing may change between lines
            WriteLog(current, "%s\t%s\n", stamp, line);
        });
        return;
    }
    char path[MAX_PATH] = {};
    GetSyslogFilePath(1, 0, path, sizeof path);
    FILE* file = kv::OpenSharedStream(path);
    if (!file) return;
    ForEachLine(text, [&](const char* line) {
        char formatted[kLineSize];
        fwrite(formatted, 1, FormatSyslogLine(formatted, stamp, line), file);
    });
    fclose(file);
}

void WriteEventV(const char* format, va_list args) {
    char stamp[32];
    uint32_t stampLength = 0;
    GetDateTimeString(stamp, &stampLength);
    char text[kLineSize];
    vsnprintf(text, kLineSize - stampLength, format, args);
    WriteEvent(text, stamp);
}

}  // namespace

extern "C" {

void SetApplicationSyslog(LogFile* log) { kv::ApplicationSyslog = log; }

void DirectSyslogWriteEx(bool enabled, const char* format, ...) {
    if (!enabled || !format) return;
    va_list args;
    va_start(args, format);
    WriteEventV(format, args);
    va_end(args);
}

void DirectSyslogWrite(const char* format, ...) {
    if (!format) return;
    char text[kLineSize] = {};
    va_list args;
    va_start(args, format);
    vsnprintf(text, kLineSize - 1, format, args);
    va_end(args);
    DirectSyslogWriteEx(true, "%s", text);
}

// The converted text serves as a format once more, so "%%" becomes "%"; no
// other conversion in it is ever given an argument.
void DirectSyslogWriteW(const wchar_t* format, ...) {
    if (!format) return;
    wchar_t wide[2048] = {};
    va_list args;
    va_start(args, format);
    const int count = _vsnwprintf(wide, 2046, format, args);
    va_end(args);
    char narrow[kLineSize] = "";
    if (count >= 0) kv::ToNarrow(wide, size_t(count), narrow, sizeof narrow);
    kv::CollapsePercentPairs(narrow, strlen(narrow));
    DirectSyslogWriteEx(true, "%s", narrow);
}

}  // extern "C"
