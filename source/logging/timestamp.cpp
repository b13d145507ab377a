// The timestamp of every log line: local time to the millisecond, a tab and
// the offset from UTC.
#include <windows.h>
#include <stdio.h>

#include "KvLogging.h"

namespace {
char sharedTimestamp[32];  // used when the caller passes no buffer

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

// The zone query costs as much as the rest of a log line, and its answer only
// changes on a minute of local time (daylight saving starts and ends on one):
// each thread asks again when the local minute changes.
long BiasAt(const SYSTEMTIME& now) {
    thread_local unsigned long long cachedMinute = ~0ull;
    thread_local long cachedBias;
    const unsigned long long minute = (((now.wYear * 16ull + now.wMonth) * 32 + now.wDay) * 32 + now.wHour) * 64 +
                                      now.wMinute;
    if (minute != cachedMinute) {
        cachedBias = QueryBias();
        cachedMinute = minute;
    }
    return cachedBias;
}
}  // namespace

extern "C" char* GetDateTimeString(char* buffer, uint32_t* length) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    const long bias = BiasAt(now);
    const char sign = bias > 0 ? '-' : '+';
    const long magnitude = bias < 0 ? -bias : bias;
    char* out = buffer ? buffer : sharedTimestamp;
    const int n = snprintf(out, 32, "%d-%02d-%02d %02d:%02d:%02d.%03d\t%c%02ld:%02ld", now.wYear, now.wMonth,
                           now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, sign,
                           magnitude / 60, magnitude % 60);
    if (length) *length = (n > 0 && n < 32) ? uint32_t(n) : 0;
    return out;
}
