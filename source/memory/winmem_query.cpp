// Pointer and length queries, page-protected and shared blocks, and the raw
// stack capture and dump every error report uses.
#include <string.h>

#include "KvLogging.h"
#include "crash/callstack_caller.h"
#include "memory/winmem_internal.h"
#include "memory/winmem_report.h"
#include "memory/winmem_state.h"
#include "platform/owned_handle.h"

extern "C" {

int DbgIsValidPtr(void* pointer) {
    using namespace kv;
    if (!pointer) {
        DbgLogWrite("NULL memory pointer\n");
        DumpCallerStack();
        return 0;
    }
    const PointerCheck check = ClassifyPointer(pointer);
    if (check == PointerCheck::Valid) return 1;
    ReportBadPointer(check, pointer);
    if (check != PointerCheck::NullElement) DumpMemoryAtPointer(pointer);
    DumpCallerStack();
    return 0;
}

uint32_t DbgMemAllocLen(void* pointer) {
    using namespace kv;
    if (!pointer) return 0;
    if (GuardedMode()) return ElementOf(pointer)->size;
    return ReadU32(static_cast<char*>(pointer) - kShortHeaderBytes);
}

void* osMemAllocProtect(int size, uint16_t flags) {
    using namespace kv;
    uint32_t n = uint32_t(size);
    if (Settings.forceVirtualAlign) n = (n + 3) & ~3u;
    char* p = AllocateBeforeNoAccessPage(n);
    if (p && (flags & 0x01)) memset(p, 0, n);
    return p;
}

// Page-protected regions live until the process ends.
void osMemFreeProtect(void) {}

void* MemAllocShare(uint16_t size) {
    kv::platform::KernelHandle mapping(
        CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, DWORD(size) + 8, nullptr));
    if (!mapping) return nullptr;
    char* view = static_cast<char*>(MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    if (!view) return nullptr;
    // The block carries its mapping's handle in its first bytes until MemFreeShare.
    const HANDLE kept = mapping.release();
    memcpy(view, &kept, sizeof kept);
    return view + 8;
}

void MemFreeShare(void* pointer) {
    if (!pointer) return;
    HANDLE mapping;
    memcpy(&mapping, static_cast<char*>(pointer) - 8, sizeof mapping);
    UnmapViewOfFile(static_cast<char*>(pointer) - 8);
    kv::platform::KernelHandle closing(mapping);
}

void DbgHlpDumpStack(void) { kv::DumpCallerStack(); }

uint16_t DbgHlpGetStack(void** frames, uint32_t count) {
    if (!frames) return 0;
    return kv::CaptureFromCaller(frames, count);
}

void DbgHlpSetPageGuardWindow(uint64_t low, uint64_t high, uint32_t depth) {
    kv::GuardWindow.low = low;
    kv::GuardWindow.high = high;
    kv::GuardWindow.depth = depth > 32 ? 32 : depth;
}

}  // extern "C"
