// Child-host scenarios of the call-stack system: the symbol handler, once
// started, stays for the whole process.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include "KvDebugHelp.h"
#include "scenario.h"

// Location lookup and capture: prints the location the library found for a
// light-mode allocation and for a direct lookup, each with the line it was
// made on, and the frames of a raw capture.
KV_SCENARIO(mem_location_lookup) {
    printf("before %d\n", IsInstrumentationEnabled());
    EnableCallStackAndAllocationInstrumentation(0, 2, const_cast<char*>(""), 0);
    printf("enabled %d\n", IsInstrumentationEnabled());
    const char* file = nullptr;
    const unsigned line = GetActualAllocationLocation(0, "given.cpp", 7, &file); const int site = __LINE__;
    printf("lookup %s:%u site %d\n", file, line, site);
    void* frames[8] = {};
    printf("frames %u %u\n", unsigned(GetStackFrames(frames, 8, 0)), unsigned(GetStackFrames(nullptr, 8, 0)));
    printf("null %u\n", unsigned(DbgHlpGetStack(nullptr, 8)));
    return frames[0] ? 0 : 1;
}
