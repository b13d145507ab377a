// The timestamp of every log line: local time to the millisecond, a tab and
// the offset from UTC.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include "KvLogging.h"

namespace {

constexpr size_t kStampRoom = 32;
constexpr unsigned long long kTicksPerMillisecond = 10000;
constexpr unsigned long long kTicksPerSecond = 1000 * kTicksPerMillisecond;
constexpr unsigned long long kTicksPerMinute = 60 * kTicksPerSecond;

char sharedTimestamp[kStampRoom];  // used when the caller passes no buffer

// UTC minus local time, in minutes.
long QueryBias() {
    TIME_ZONE_INFORMATION zone;
    switch (GetTimeZoneInformation(&zone)) {
        case TIME_ZONE_ID_UNKNOWN: return zone.Bias;
        case TIME_ZONE_ID_STANDARD: return zone.Bias + zone.StandardBias;
        case TIME_ZONE_ID_DAYLIGHT: return zone.Bias + zone.DaylightBias;
        default: return 0;
    }
}

// What a line's timestamp shares with every other line of its second: all of
// it but the milliseconds. Formatting it and asking for the zone cost more
// than the rest of a log line, so each thread does it once a second (the zone
// once a minute: daylight saving starts and ends on one) and a line only
// copies it and writes the milliseconds. The local time is the system time
// minus the zone's bias, as GetLocalTime computes it.
struct SecondText {
    unsigned long long second = ~0ull;  // UTC, in seconds since 1601
    unsigned long long minute = ~0ull;
    long bias = 0;
    char zone[16] = "";               // "\t+10:00"
    char stamp[kStampRoom] = "";      // "2024-03-05 14:07:09.000\t+10:00"
    uint32_t millisecondsAt = 0;      // where the three digits go
    uint32_t length = 0;              // 0: the stamp did not fit
};

void Refresh(SecondText& text, unsigned long long second) {
    const unsigned long long minute = second / 60;
    if (minute != text.minute) {
        text.bias = QueryBias();
        text.minute = minute;
        const long magnitude = text.bias < 0 ? -text.bias : text.bias;
        snprintf(text.zone, sizeof text.zone, "\t%c%02ld:%02ld", text.bias > 0 ? '-' : '+', magnitude / 60,
                 magnitude % 60);
    }
    ULARGE_INTEGER local;
    const long long biasTicks = static_cast<long long>(text.bias) * static_cast<long long>(kTicksPerMinute);
    local.QuadPart = static_cast<unsigned long long>(static_cast<long long>(second * kTicksPerSecond) - biasTicks);
    const FILETIME localTime{local.LowPart, local.HighPart};
    SYSTEMTIME fields{};
    FileTimeToSystemTime(&localTime, &fields);
    const int at = snprintf(text.stamp, sizeof text.stamp, "%d-%02d-%02d %02d:%02d:%02d.", fields.wYear,
                            fields.wMonth, fields.wDay, fields.wHour, fields.wMinute, fields.wSecond);
    const int n = at > 0 && size_t(at) < sizeof text.stamp
                      ? snprintf(text.stamp + at, sizeof text.stamp - size_t(at), "000%s", text.zone)
                      : -1;
    const size_t total = size_t(at) + size_t(n);
    text.length = n > 0 && total < sizeof text.stamp ? uint32_t(total) : 0;
    text.millisecondsAt = uint32_t(at);
    text.second = second;
}

}  // namespace

extern "C" char* GetDateTimeString(char* buffer, uint32_t* length) {
    thread_local SecondText text;
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    const unsigned long long ticks = (static_cast<unsigned long long>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    const unsigned long long second = ticks / kTicksPerSecond;
    if (second != text.second) Refresh(text, second);
    const unsigned milliseconds = unsigned(ticks / kTicksPerMillisecond % 1000);

    char* out = buffer ? buffer : sharedTimestamp;
    if (text.length == 0) {
        out[0] = '\0';
        if (length) *length = 0;
        return out;
    }
    // The whole room at once: a copy of known size needs no call.
    memcpy(out, text.stamp, kStampRoom);
    char* digits = out + text.millisecondsAt;
    digits[0] = char('0' + milliseconds / 100);
    digits[1] = char('0' + milliseconds / 10 % 10);
    digits[2] = char('0' + milliseconds % 10);
    if (length) *length = text.length;
    return out;
}
