// The timestamp of every log line: local time to the millisecond, a tab and
// the offset from UTC.
#include <windows.h>
#include <stdio.h>

#include "KvLogging.h"

namespace {
char sharedTimestamp[32];  // used when the caller passes no buffer
}

extern "C" char* GetDateTimeString(char* buffer, uint32_t* length) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    TIME_ZONE_INFORMATION zone;
    long bias;  // UTC minus local time, in minutes
    switch (GetTimeZoneInformation(&zone)) {
        case TIME_ZONE_ID_UNKNOWN: bias = zone.Bias; break;
        case TIME_ZONE_ID_STANDARD: bias = zone.Bias + zone.StandardBias; break;
        case TIME_ZONE_ID_DAYLIGHT: bias = zone.Bias + zone.DaylightBias; break;
        default: bias = 0; break;
    }
    const char sign = bias > 0 ? '-' : '+';
    const long magnitude = bias < 0 ? -bias : bias;
    char* out = buffer ? buffer : sharedTimestamp;
    const int n = snprintf(out, 32, "%d-%02d-%02d %02d:%02d:%02d.%03d\t%c%02ld:%02ld", now.wYear, now.wMonth,
                           now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, sign,
                           magnitude / 60, magnitude % 60);
    if (length) *length = (n > 0 && n < 32) ? uint32_t(n) : 0;
    return out;
}
