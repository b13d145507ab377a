// DbgLogWrite and DbgLogWriteW: one timestamped line in a 1024-byte buffer.
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "KvLogging.h"
#include "frame/process_state.h"
#include "logging/debug_log.h"

namespace {

constexpr size_t kLineSize = 1024;

// The message either comes from a format with its arguments, or is a text
// that served as a format without any (the wide variant): then only "%%" means
// something, and no argument is ever read.
struct MessageSource {
    const char* format;
    va_list* args;  // null: format is a text with no arguments
};

// Returns the length the message would have had (vsnprintf rules), -1 on error.
int PutMessage(char* out, size_t capacity, const MessageSource& source) {
    if (source.args) return vsnprintf(out, capacity, source.format, *source.args);
    const size_t length = strlen(source.format);
    const size_t copied = length < capacity ? length : capacity - 1;
    memcpy(out, source.format, copied);
    out[copied] = '\0';
    return int(kv::CollapsePercentPairs(out, copied));
}

void WriteLine(const char* format, const MessageSource& source) {
    char line[kLineSize];
    size_t start = 0;
    if (format[0] == '\n') {
        line[start++] = '\n';
        // "\n" alone and "\n" plus one character give just an empty line.
        if (format[1] == '\0' || format[2] == '\0') {
            kv::AppendToDebugLog("\r\n", 2);
            return;
        }
    }
    MessageSource message = source;
    if (format[0] == '\n') ++message.format;

    uint32_t stampLength = 0;
    GetDateTimeString(line + start, &stampLength);
    size_t end = start + stampLength;
    line[end] = ' ';
    const size_t messageStart = end + 1;
    const int reported = PutMessage(line + messageStart, kLineSize - 2 - stampLength - start, message);
    if (reported >= 0) end = messageStart + strlen(line + messageStart);  // the text actually kept
    // A truncated message still ends in a newline inside the buffer.
    if (end > kLineSize - 2) end = kLineSize - 2;
    if (end == 0 || line[end - 1] != '\n') line[end++] = '\n';
    line[end] = '\0';

    // The line is a format once more: "%%" becomes "%", nothing else is read.
    end = kv::CollapsePercentPairs(line, end);
    char translated[2 * kLineSize];
    kv::AppendToDebugLog(translated, kv::ToCrLf(line, end, translated));
}

}  // namespace

extern "C" {

void DbgLogWrite(const char* format, ...) {
    if (!format || !kv::Settings.logErrors) return;
    va_list args;
    va_start(args, format);
    WriteLine(format, MessageSource{format, &args});
    va_end(args);
}

void DbgLogWriteW(const wchar_t* format, ...) {
    if (!format || !kv::Settings.logErrors) return;
    wchar_t wide[1020];
    va_list args;
    va_start(args, format);
    const int count = _vsnwprintf(wide, 1019, format, args);  // -1 on overflow
    va_end(args);
    char narrow[kLineSize] = "";
    if (count >= 0) kv::ToNarrow(wide, size_t(count), narrow, sizeof narrow);
    WriteLine(narrow, MessageSource{narrow, nullptr});
}

}  // extern "C"
