// The element list walkers, the statistics copy, the full check and the
// element dumps that hosts can print with their own writer.
#include <stdio.h>

#include "KvLogging.h"
#include "memory/winmem_report.h"
#include "memory/winmem_state.h"
#include "platform/lock_scope.h"

namespace kv {
namespace {

// Holds MemoryLock for a scope (the lock is recursive).
struct MemoryLockScope : platform::LockScope {
    MemoryLockScope() : LockScope(MemoryLock) {}
};

DbgMemElement* LiveOrNull(DbgMemElement* e) { return e && e->magic == kElementMagic ? e : nullptr; }

// Lines here hold only hex digits, letters, digits, dots and blanks, never a
// "%", so they can go to a format-taking writer as they are.
void WriteHexBlock(const unsigned char* bytes, uint32_t count, DbgMemWriter writer) {
    char line[80];
    while (count > 0) {
        const uint32_t rest = FormatHexLine(bytes, count, line);
        writer(line);
        bytes += 16;
        count = rest;
    }
}

}  // namespace
}  // namespace kv

extern "C" {

DbgMemElement* dbgMemFirstHdr(void) {
    using namespace kv;
    MemoryLockScope outer;
    if (HeadSentinel.magic != kElementMagic && HeadSentinel.magic != kHeadMagic) return nullptr;
    MemoryLockScope inner;
    return LiveOrNull(HeadSentinel.next);
}

DbgMemElement* dbgMemNextHdr(DbgMemElement* e) {
    using namespace kv;
    if (!e) return nullptr;
    MemoryLockScope lock;
    if (e->magic != kElementMagic && e->magic != kHeadMagic) return nullptr;
    return LiveOrNull(e->next);
}

DbgMemElement* dbgMemPrevHdr(DbgMemElement* e) {
    using namespace kv;
    if (!e) return nullptr;
    MemoryLockScope lock;
    if (e->magic != kElementMagic && e->magic != kTailMagic && e->magic != kInstrumentedTrailer) return nullptr;
    return LiveOrNull(e->prev);
}

void dbgMemStats(DbgMemStatistics* stats) {
    if (!stats) return;
    kv::MemoryLockScope lock;
    *stats = kv::Stats;
}

void dbgMemCheckAllMemory(int leakCheck) {
    using namespace kv;
    if (DebugMode == 0) return;
    MemoryLockScope lock;
    if (HeadSentinel.magic != kHeadMagic) {
        DbgLogWrite("Memory error - debug heap invalid at head - %s %s\n", ExeName, IdString);
        ApplyCrashOnError();
        return;
    }
    DbgMemElement* lastGood = &HeadSentinel;
    for (DbgMemElement* e = HeadSentinel.next; e && e->magic != kTailMagic; e = e->next) {
        if (e->magic == kInstrumentedTrailer || e->magic == 0) break;
        if (e->magic == kElementMagic) {
            CheckElement(e);
            if (leakCheck && !(e->flags & (kFlagFreed | kFlagExempt))) {
                DbgLogWrite("Memory error - memory not freed - %s %s\n", ExeName, IdString);
                ReportElement(e);
                ApplyCrashOnError();
            }
        } else {
            DbgLogWrite("Memory error - debug heap invalid - %s %s - last known good element follows\n", ExeName,
                        IdString);
            ReportElement(lastGood);
            ApplyCrashOnError();
        }
        lastGood = e;
    }
}

void dbgMemDumpStackTrace(DbgMemElement* e, int full, DbgMemWriter writer) {
    using namespace kv;
    if (!e || !writer) return;
    const uint32_t words = full ? Layout.stackWords : 4;
    const uint32_t* slots = StackSlots(e);
    char line[4 * 12 + 2];
    for (uint32_t i = 0; i < words; i += 4) {
        int used = 0;
        for (uint32_t j = i; j < words && j < i + 4; ++j)
            used += snprintf(line + used, sizeof line - used, "%#.8lx ", static_cast<unsigned long>(slots[j]));
        snprintf(line + used, sizeof line - used, "\n");
        writer(line, nullptr);
    }
}

void dbgMemDumpMemory(DbgMemElement* e, DbgMemWriter writer) {
    using namespace kv;
    if (!e || !writer) return;
    if (e->magic != kElementMagic) {
        writer("Invalid or Unknown Memory\n");
        return;
    }
    writer("Lead Buffer:\n");
    WriteHexBlock(LeadGuard(e), Layout.guardBytes, writer);
    writer("Memory:\n");
    const unsigned char* data = UserData(e);
    if (e->size > 256) {
        WriteHexBlock(data, 128, writer);
        writer("...............................................\n");
        WriteHexBlock(data + e->size - 128, 128, writer);
    } else {
        WriteHexBlock(data, e->size, writer);
    }
    writer("Trail Buffer:\n");
    WriteHexBlock(TrailGuard(e), Layout.guardBytes, writer);
}

}  // extern "C"
