// Stack dumps, hex dumps, the element report and the single-element check.
#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include "KvLogging.h"
#include "crash/callstack_caller.h"
#include "crash/stack_modules.h"
#include "memory/winmem_report.h"
#include "memory/winmem_state.h"

namespace kv {

void DumpCallerStack() {
    void* frames[40];
    const uint16_t n = CaptureFromCaller(frames, 40);
    char line[4 * 24 + 2];
    for (uint16_t i = 0; i < n; i += 4) {
        int used = 0;
        for (uint16_t j = i; j < n && j < i + 4; ++j)
            used += snprintf(line + used, sizeof line - used, "0x%p ", frames[j]);
        snprintf(line + used, sizeof line - used, "\n");
        DbgLogWrite("%s", line);
    }
    uint64_t addresses[40];
    for (uint16_t i = 0; i < n; ++i) addresses[i] = reinterpret_cast<uint64_t>(frames[i]);
    LogStackModules(addresses, n);
}

uint32_t FormatHexLine(const unsigned char* bytes, uint32_t count, char* line) {
    static const char kHex[] = "0123456789ABCDEF";
    char* out = line;
    for (uint32_t i = 0; i < 16; ++i) {
        if (i < count) {
            *out++ = kHex[bytes[i] >> 4];
            *out++ = kHex[bytes[i] & 15];
        } else {
            *out++ = ' ';
            *out++ = ' ';
        }
        *out++ = ' ';
    }
    memcpy(out, "      ", 6);
    out += 6;
    for (uint32_t i = 0; i < 16; ++i) *out++ = i < count ? (isalnum(bytes[i]) ? char(bytes[i]) : '.') : ' ';
    *out++ = '\n';
    *out = 0;
    return count <= 16 ? 0 : count - 16;
}

void DumpMemoryAtPointer(const void* pointer) {
    DbgLogWrite("Stack trace:\n");
    DumpCallerStack();
    const unsigned char* bytes = static_cast<const unsigned char*>(pointer);
    char line[80];
    for (int i = 0; i < 2; ++i) {
        if (!pointer) {
            DbgLogWrite("Cannot access memory at %p\n", pointer);
            continue;
        }
        FormatHexLine(bytes + 16 * i, 16, line);
        DbgLogWrite("%s", line);
    }
}

// The 64-bit return addresses that the stack slots hold as 32-bit word pairs.
void LogElementStackModules(DbgMemElement* e) {
    const uint32_t* slots = StackSlots(e);
    uint64_t addresses[20];
    uint32_t count = 0;
    for (uint32_t i = 0; i + 1 < Layout.stackWords && count < 20; i += 2)
        addresses[count++] = slots[i] | (uint64_t(slots[i + 1]) << 32);
    LogStackModules(addresses, count);
}

void ReportElement(DbgMemElement* e) {
    DbgLogWrite("Memory Element - ");
    switch (e ? e->magic : 0) {
        case kElementMagic:
            DbgLogWrite("Size: %lu\tFree: %d\n", static_cast<unsigned long>(e->size), int(e->flags & kFlagFreed));
            DbgLogWrite("Allocation stack trace:\n");
            dbgMemDumpStackTrace(e, 1, DbgLogWrite);
            LogElementStackModules(e);
            dbgMemDumpMemory(e, DbgLogWrite);
            break;
        case kHeadMagic: DbgLogWrite("Head of Debug Heap\n"); break;
        case kTailMagic:
        case kInstrumentedTrailer: DbgLogWrite("Tail of Debug Heap\n"); break;
        default: DbgLogWrite("Invalid or Unknown Memory\n"); break;
    }
}

bool CheckElement(DbgMemElement* e) {
    if (e->magic != kElementMagic) {
        DbgLogWrite("Memory error - invalid debug memory header - %s %s\n", ExeName, IdString);
        ApplyCrashOnError();
        return false;
    }
    const unsigned char* lead = LeadGuard(e);
    const unsigned char* trail = TrailGuard(e);
    for (uint32_t i = 0; i < Layout.guardBytes; ++i) {
        if (trail[i] == kGuardByte && lead[i] == kGuardByte) continue;
        DbgLogWrite("Memory error - overwrite memory - %s %s\n", ExeName, IdString);
        DbgLogWrite("Previous memory element\n");
        ReportElement(e->prev);
        DbgLogWrite("Memory element in error\n");
        ReportElement(e);
        DbgLogWrite("Next memory element\n");
        ReportElement(e->next);
        ApplyCrashOnError();
        return false;
    }
    return true;
}

}  // namespace kv
