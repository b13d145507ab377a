// State of the debug memory manager shared by the allocator, the heap checks
// and the checked copies. Derived sizes are fixed at attach.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "KvMemory.h"
#include "frame/process_state.h"

namespace kv {

#pragma GCC visibility push(hidden)  // defined in this DLL: reached directly (see process_state.h)

constexpr uint32_t kElementMagic = 0xA5A5A5A5u;
constexpr uint32_t kHeadMagic = 0xADADADADu;
constexpr uint32_t kTailMagic = 0xDADADADAu;
constexpr uint32_t kShortMagic = 0xADADADADu;
constexpr uint32_t kShortFreedMagic = 0xADADFEEEu;
constexpr uint32_t kHeapFreedMagic = 0xFEEEFEEEu;
constexpr uint32_t kDebugFreedMagic = 0xDDDDDDDDu;
constexpr uint32_t kPlainTrailer = 0xDADADADAu;
constexpr uint32_t kInstrumentedTrailer = 0x0DADADEBu;
constexpr uint8_t kGuardByte = 0xFD;
constexpr uint8_t kFreedFill = 0xCD;
constexpr uint32_t kFlagFreed = 0x01;
constexpr uint32_t kFlagPageGuarded = 0x02;
constexpr uint32_t kFlagExempt = 0x40;
constexpr uint32_t kFixedHeaderBytes = 32;
constexpr uint32_t kShortHeaderBytes = 8;
constexpr uint32_t kPlainFrameBytes = 12;
constexpr uint32_t kInstrumentedFrameBytes = 28;

static_assert(sizeof(DbgMemElement) == kFixedHeaderBytes, "fixed element fields take 32 bytes");

// The trailer of an instrumented short element, written unaligned after the data.
#pragma pack(push, 1)
struct InstrumentedTrailer {
    uint32_t magic;
    uint32_t time;
    uint32_t line;
    const char* file;
};
#pragma pack(pop)
static_assert(sizeof(InstrumentedTrailer) == kInstrumentedFrameBytes - kShortHeaderBytes, "trailer size");

struct MemoryLayout {
    HANDLE heap = nullptr;
    uint32_t headerBytes = 0;    // 32 + 4 x StackTraceSize
    uint32_t userOffset = 0;     // header + lead guard
    uint32_t overhead = 0;       // header + both guards
    uint32_t guardBytes = 0;     // MemoryBufferSize
    uint32_t stackWords = 0;     // StackTraceSize
    uint32_t pageSize = 4096;
};
extern MemoryLayout Layout;

extern DbgMemElement HeadSentinel;
extern DbgMemElement TailSentinel;
extern DbgMemStatistics Stats;

// Light-mode counters: plain, unsynchronised on purpose (hot path).
extern uint64_t AllocationTotal;
extern uint64_t AllocationsOutstanding;

// Debug mode 16 window, full 64-bit return addresses.
struct PageGuardWindow {
    uint64_t low = 0;
    uint64_t high = 0;
    uint32_t depth = 0;
};
extern PageGuardWindow GuardWindow;

// The shared counter of the periodic check (debug mode 32).
extern uint32_t PeriodicCheckCounter;

inline bool GuardedMode() { return DebugMode != 0; }
inline bool PagePoolMode() { return DebugMode == 0 && Settings.allocFromPage; }

inline uint32_t* StackSlots(DbgMemElement* e) {
    return reinterpret_cast<uint32_t*>(reinterpret_cast<char*>(e) + kFixedHeaderBytes);
}
inline unsigned char* LeadGuard(DbgMemElement* e) {
    return reinterpret_cast<unsigned char*>(e) + Layout.headerBytes;
}
inline unsigned char* UserData(DbgMemElement* e) {
    return reinterpret_cast<unsigned char*>(e) + Layout.userOffset;
}
inline unsigned char* TrailGuard(DbgMemElement* e) { return UserData(e) + e->size; }
inline DbgMemElement* ElementOf(const void* p) {
    return reinterpret_cast<DbgMemElement*>(reinterpret_cast<uintptr_t>(p) - Layout.userOffset);
}

inline uint32_t ReadU32(const void* p) {
    uint32_t v;
    memcpy(&v, p, sizeof v);
    return v;
}

#pragma GCC visibility pop

}  // namespace kv
