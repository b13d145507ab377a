// osMemFree: guarded elements are checked and unlinked, short elements
// checked by their magic and trailer, page-pool blocks counted down.
#include <string.h>

#include "KvLogging.h"
#include "memory/winmem_internal.h"
#include "memory/winmem_report.h"
#include "memory/winmem_state.h"

namespace kv {
namespace {

void FreeBadGuardedPointer(void* pointer, bool nullElement) {
    if (nullElement) {
        DbgLogWrite("Bad memory pointer 0x%p\n", pointer);
    } else {
        DbgLogWrite("Pointer not a valid memAlloc pointer 0x%p\n", pointer);
        DumpMemoryAtPointer(pointer);
    }
    DbgHlpDumpStack();
    DbgLogWrite("Memory error - try to free bad or unknown memory - %s %s\n", ExeName, IdString);
    ApplyCrashOnError();
    DumpMemoryAtPointer(pointer);
}

void UnlinkElement(DbgMemElement* e) {
    EnterCriticalSection(&MemoryLock);
    e->prev->next = e->next;
    e->next->prev = e->prev;
    Stats.elementCount -= 1;
    Stats.bytesInUse -= e->size;
    Stats.totalBytesInUse -= e->size + Layout.overhead;
    e->prev = nullptr;
    e->next = nullptr;
    if (e->flags & kFlagPageGuarded) Stats.pageGuardedCount -= 1;
    LeaveCriticalSection(&MemoryLock);
}

// The region of a page-guarded element is found from the element's own
// placement: it ends at the no-access page right after the element and starts
// at the page boundary below the element start (the element never starts
// exactly on the region start), whatever MemoryBufferSize is.
void ReleasePageGuarded(DbgMemElement* e) {
    const uintptr_t page = Layout.pageSize;
    const uintptr_t start = reinterpret_cast<uintptr_t>(e);
    char* guardPage = reinterpret_cast<char*>(start + Layout.overhead + e->size);
    DWORD old;
    VirtualProtect(guardPage, page, PAGE_READWRITE, &old);
    VirtualFree(reinterpret_cast<void*>((start - 1) & ~(page - 1)), 0, MEM_RELEASE);
}

void FreeGuarded(void* pointer) {
    DbgMemElement* e = ElementOf(pointer);
    if (reinterpret_cast<uintptr_t>(e) == 0) return FreeBadGuardedPointer(pointer, true);
    if (e->magic != kElementMagic) return FreeBadGuardedPointer(pointer, false);
    const uint32_t mode = DebugMode;
    if ((mode & 0x08) && (e->flags & kFlagFreed)) {
        DbgLogWrite("Memory error - try to free already free memory - %s %s\n", ExeName, IdString);
        ReportElement(e);
        ApplyCrashOnError();
    }
    if (mode & 0x20) {
        if (PeriodicCheckCounter >= Settings.heapCheckInterval) {
            dbgMemCheckAllMemory(0);
            PeriodicCheckCounter = 0;
        } else {
            ++PeriodicCheckCounter;
        }
    }
    if (mode & 0x04) dbgMemCheckAllMemory(0);
    else CheckElement(e);
    if (mode & 0x08) {
        e->flags |= kFlagFreed;
        return;
    }
    UnlinkElement(e);
    if (e->flags & kFlagPageGuarded) {
        ReleasePageGuarded(e);
        return;
    }
    memset(e, kFreedFill, SIZE_T(e->size) + Layout.overhead);
    HeapFree(Layout.heap, 0, e);
}

}  // namespace

PointerCheck ClassifyPointer(const void* pointer) {
    if (GuardedMode()) {
        const DbgMemElement* e = ElementOf(pointer);
        if (reinterpret_cast<uintptr_t>(e) == 0) return PointerCheck::NullElement;
        return e->magic == kElementMagic ? PointerCheck::Valid : PointerCheck::NotAllocator;
    }
    const char* p = static_cast<const char*>(pointer);
    if (reinterpret_cast<uintptr_t>(p) == kShortHeaderBytes) return PointerCheck::NullElement;
    const uint32_t magic = ReadU32(p - 4);
    if (magic == kShortMagic) {
        const uint32_t trailer = ReadU32(p + ReadU32(p - 8));
        return trailer == kPlainTrailer || trailer == kInstrumentedTrailer ? PointerCheck::Valid
                                                                           : PointerCheck::NotAllocator;
    }
    if (magic == kShortFreedMagic || magic == kHeapFreedMagic || magic == kDebugFreedMagic)
        return PointerCheck::DoubleFree;
    return PointerCheck::NotAllocator;
}

void ReportBadPointer(PointerCheck check, const void* pointer) {
    switch (check) {
        case PointerCheck::NullElement: DbgLogWrite("Bad memory pointer 0x%p\n", pointer); break;
        case PointerCheck::NotAllocator: DbgLogWrite("Pointer not a valid memAlloc pointer 0x%p\n", pointer); break;
        case PointerCheck::DoubleFree: DbgLogWrite("Pointer used in double free 0x%p\n", pointer); break;
        case PointerCheck::Valid: break;
    }
}

}  // namespace kv

namespace kv {
namespace {

__attribute__((noinline)) void RefuseShortPointer(char* p) {
    const PointerCheck check = ClassifyPointer(p);
    ReportBadPointer(check, p);
    if (check != PointerCheck::NullElement) DumpMemoryAtPointer(p);
    DumpCallerStack();
}

__attribute__((noinline)) void FreeOtherModes(void* pointer) {
    if (GuardedMode()) FreeGuarded(pointer);
    else FreeToPagePool(pointer);
}

}  // namespace
}  // namespace kv

extern "C" void osMemFree(void* pointer) {
    using namespace kv;
    if (!pointer) return;
    if (DebugMode != 0 || Settings.allocFromPage) return FreeOtherModes(pointer);
    // Light mode inline; anything that is not a live short element goes to the report.
    char* p = static_cast<char*>(pointer);
    if (reinterpret_cast<uintptr_t>(p) != kShortHeaderBytes && ReadU32(p - 4) == kShortMagic) {
        const uint32_t trailer = ReadU32(p + ReadU32(p - 8));
        if (trailer == kPlainTrailer || trailer == kInstrumentedTrailer) {
            memcpy(p - 4, &kShortFreedMagic, 4);
            AllocationsOutstanding -= 1;
            // Last, so the compiler can make it a jump instead of a call.
            HeapFree(Layout.heap, 0, p - kShortHeaderBytes);
            return;
        }
    }
    RefuseShortPointer(p);
}
