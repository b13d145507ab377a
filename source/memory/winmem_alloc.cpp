// The allocation core: guarded elements, short (light-mode) elements and the
// page pool, chosen on every call from the debug mode and "AllocFromPage".
#include <string.h>

#include "KvCallStack.h"
#include "KvLogging.h"
#include "crash/callstack_state.h"
#include "memory/winmem_internal.h"
#include "memory/winmem_report.h"
#include "memory/winmem_state.h"

namespace kv {
namespace {

constexpr const char* kDefaultFile = "winmem";
constexpr int kAllocLine = 893;
constexpr int kReAllocLine = 1289;

// Seconds since 1970 from the system clock: the runtime's time() also looks
// up the time zone, which costs microseconds under Wine.
uint32_t UnixSeconds() {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    const uint64_t ticks = (uint64_t(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return uint32_t((ticks - 116444736000000000ull) / 10000000ull);
}

void RunPeriodicCheckStep() {
    if (PeriodicCheckCounter >= Settings.heapCheckInterval) {
        dbgMemCheckAllMemory(0);
        PeriodicCheckCounter = 0;
    } else {
        ++PeriodicCheckCounter;
    }
}

// Debug mode 16: does the current stack pass through the guard window?
// Entry 0 (this library) is never looked at.
__attribute__((always_inline)) inline bool CalledFromGuardWindow() {
    static void* frames[32];  // one shared array, as the mode has always had
    const uint32_t depth = GuardWindow.depth > 32 ? 32 : GuardWindow.depth;
    if (depth <= 1) return false;
    const uint16_t n = Capture(2, depth, frames);
    for (uint32_t i = 1; i < depth && i < n; ++i) {
        const uint64_t address = reinterpret_cast<uintptr_t>(frames[i]);
        if (address == 0) return false;
        if (address >= GuardWindow.low && address <= GuardWindow.high) return true;
    }
    return false;
}

void LinkElement(DbgMemElement* e, uint32_t total) {
    EnterCriticalSection(&MemoryLock);
    Stats.elementCount += 1;
    Stats.bytesInUse += e->size;
    Stats.totalBytesInUse += total;
    e->next = &TailSentinel;
    e->prev = TailSentinel.prev;
    TailSentinel.prev->next = e;
    TailSentinel.prev = e;
    if (Stats.bytesInUse > Stats.peakBytes) Stats.peakBytes = Stats.bytesInUse;
    if (Stats.totalBytesInUse > Stats.peakTotalBytes) Stats.peakTotalBytes = Stats.totalBytesInUse;
    if (Stats.elementCount > Stats.peakElementCount) Stats.peakElementCount = Stats.elementCount;
    if (e->flags & kFlagPageGuarded) Stats.pageGuardedCount += 1;
    LeaveCriticalSection(&MemoryLock);
}

// The slots are 32-bit words, a width kept from the 32-bit layout: they hold
// the first 4 x StackTraceSize bytes of the captured return addresses. The
// capture goes into a local array and only those bytes are copied, so it can
// never write past the slots. Half as many frames as slots fill them exactly.
__attribute__((always_inline)) inline void CaptureAllocationStack(DbgMemElement* e) {
    if (!CaptureStack) return;
    void* frames[20] = {};
    const uint32_t wanted = (Layout.stackWords + 1) / 2;
    // Skip the allocation core and the exported entry: frame 0 is the caller's site.
    CaptureStack(2, wanted, frames, nullptr);
    memcpy(StackSlots(e), frames, 4u * Layout.stackWords);
}

// A page-guarded element ends exactly at a no-access page, so the first byte
// written past the trail guard faults at once.
DbgMemElement* AllocatePageGuarded(uint32_t& n, uint32_t& total) {
    if (Settings.forceVirtualAlign) n = (n + 3) & ~3u;
    total = Layout.overhead + n;
    return reinterpret_cast<DbgMemElement*>(AllocateBeforeNoAccessPage(total));
}

__attribute__((always_inline)) inline void* AllocateGuarded(uint32_t n, uint16_t flags) {
    const uint32_t mode = DebugMode;
    if (mode & 0x04) dbgMemCheckAllMemory(0);
    if (mode & 0x20) RunPeriodicCheckStep();
    DbgMemElement* e = nullptr;
    uint32_t total = 0;
    uint32_t elementFlags = flags & kFlagExempt;
    if ((mode & 0x10) && CalledFromGuardWindow()) {
        e = AllocatePageGuarded(n, total);
        if (!e) return nullptr;
        elementFlags |= kFlagPageGuarded;
    } else {
        total = Layout.overhead + n;
        e = static_cast<DbgMemElement*>(HeapAlloc(Layout.heap, 0, total));
        if (!e) return nullptr;
    }
    e->magic = kElementMagic;
    e->size = n;
    e->flags = elementFlags;
    CaptureAllocationStack(e);
    memset(LeadGuard(e), kGuardByte, Layout.guardBytes);
    memset(TrailGuard(e), kGuardByte, Layout.guardBytes);
    LinkElement(e, total);
    return UserData(e);
}

__attribute__((always_inline)) inline void* AllocatePlainShort(uint32_t n) {
    AllocationTotal += 1;
    AllocationsOutstanding += 1;
    char* block = static_cast<char*>(HeapAlloc(Layout.heap, 0, SIZE_T(n) + kPlainFrameBytes));
    if (!block) return nullptr;
    const uint32_t head[2] = {n, kShortMagic};
    memcpy(block, head, sizeof head);
    memcpy(block + kShortHeaderBytes + n, &kPlainTrailer, 4);
    return block + kShortHeaderBytes;
}

__attribute__((always_inline)) inline void* AllocateShort(uint32_t n, const char* file, int line) {
    if (!Instrumentation.instrumentedTrailers) return AllocatePlainShort(n);
    AllocationTotal += 1;
    AllocationsOutstanding += 1;
    if (Instrumentation.locationLookup) {
        const char* actualFile = nullptr;
        const uint32_t actualLine = GetActualAllocationLocation(2, file, uint32_t(line), &actualFile);
        if (actualLine != 0) {
            line = int(actualLine);
            file = actualFile;
        }
    }
    char* block = static_cast<char*>(HeapAlloc(Layout.heap, 0, SIZE_T(n) + kInstrumentedFrameBytes));
    if (!block) return nullptr;
    const uint32_t head[2] = {n, kShortMagic};
    memcpy(block, head, sizeof head);
    const InstrumentedTrailer trailer{kInstrumentedTrailer, UnixSeconds(), uint32_t(line), file};
    memcpy(block + kShortHeaderBytes + n, &trailer, sizeof trailer);
    return block + kShortHeaderBytes;
}

}  // namespace

char* AllocateBeforeNoAccessPage(uint32_t bytes) {
    const SIZE_T page = Layout.pageSize;
    const SIZE_T length = (bytes / page + 2) * page;
    char* region = static_cast<char*>(VirtualAlloc(nullptr, length, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    if (!region) return nullptr;
    DWORD old;
    VirtualProtect(region + length - page, page, PAGE_NOACCESS, &old);
    return region + length - page - bytes;
}

__attribute__((noinline)) void* AllocateCore(uint32_t size, uint16_t flags, const char* file, int line) {
    if (int32_t(size) < 0) {
        DbgLogWrite("osMemAlloc: invalid size argument = %ld\n", long(int32_t(size)));
        DbgHlpDumpStack();
        return nullptr;
    }
    const uint32_t n = size + Settings.padding;
    void* p;
    if (GuardedMode()) {
        p = AllocateGuarded(n, flags);
        // A page-guarded element may have been rounded up: zero what it holds.
        if (p && (flags & 0x01)) memset(p, 0, ElementOf(p)->size);
        return p;
    }
    p = Settings.allocFromPage ? AllocateFromPagePool(n) : AllocateShort(n, file, line);
    if (p && (flags & 0x01)) memset(p, 0, n);
    return p;
}

__attribute__((noinline)) void* ReAllocateCore(void* pointer, uint32_t size, uint16_t flags, const char* file,
                                               int line) {
    if (int32_t(size) < 0) {
        DbgLogWrite("osMemReAlloc: invalid size argument = %ld\n", long(int32_t(size)));
        DbgHlpDumpStack();
        return nullptr;
    }
    if (!pointer) return AllocateCore(size, flags, file, line);
    if (size == 0) {
        osMemFree(pointer);
        return nullptr;
    }
    const uint32_t oldSize = GuardedMode() ? ElementOf(pointer)->size : ReadU32(static_cast<char*>(pointer) - 8);
    // The requested size is compared without Padding: with Padding the block always moves.
    if (size == oldSize) return pointer;
    void* fresh = AllocateCore(size, flags & ~uint16_t(0x01), file, line);
    if (!fresh) return nullptr;
    memcpy(fresh, pointer, size < oldSize ? size : oldSize);
    if (size > oldSize && (flags & 0x01)) memset(static_cast<char*>(fresh) + oldSize, 0, size - oldSize);
    osMemFree(pointer);
    return fresh;
}

}  // namespace kv

// The exported entries keep their own frame (no tail call), so the core
// always skips exactly two frames to reach the caller's site.
#define KV_KEEP_FRAME(result) \
    do {                      \
        asm volatile("");     \
        return result;        \
    } while (0)

extern "C" {

void* osMemAlloc(uint32_t size, uint16_t flags) {
    using namespace kv;
    // The common case inline: light mode with the plain frame.
    if (DebugMode == 0 && !Settings.allocFromPage && !Instrumentation.instrumentedTrailers && int32_t(size) >= 0) {
        const uint32_t n = size + Settings.padding;
        void* p = AllocatePlainShort(n);
        if (p && (flags & 0x01)) memset(p, 0, n);
        return p;
    }
    void* p = AllocateCore(size, flags, kDefaultFile, kAllocLine);
    KV_KEEP_FRAME(p);
}

void* osMemAllocDbg(uint32_t size, uint16_t flags, const char* file, int line) {
    void* p = kv::AllocateCore(size, flags, file, line);
    KV_KEEP_FRAME(p);
}

void* osMemReAlloc(void* pointer, uint32_t size, uint16_t flags) {
    void* p = kv::ReAllocateCore(pointer, size, flags, kv::kDefaultFile, kv::kReAllocLine);
    KV_KEEP_FRAME(p);
}

void* osMemReAllocDbg(void* pointer, uint32_t size, uint16_t flags, const char* file, int line) {
    void* p = kv::ReAllocateCore(pointer, size, flags, file, line);
    KV_KEEP_FRAME(p);
}

}  // extern "C"
