// Captures pinned to the caller of the library. A fixed skip count depends on
// how many library frames the compiler leaves between the export and the
// capture (tail calls remove them, inlining merges them), so instead the whole
// stack is captured and the leading run of this module's frames is dropped.
#include "crash/callstack_caller.h"

#include <windows.h>
#include <string.h>

#include "crash/callstack_state.h"

extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace kv {
namespace {

// Older Windows versions refuse captures of 63 frames or more.
constexpr ULONG kMaxCapture = 62;

bool InThisModule(const void* address) {
    const uintptr_t base = reinterpret_cast<uintptr_t>(&__ImageBase);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + __ImageBase.e_lfanew);
    return reinterpret_cast<uintptr_t>(address) - base < headers->OptionalHeader.SizeOfImage;
}

}  // namespace

uint16_t CaptureFromCaller(void** frames, uint32_t count, uint32_t skip) {
    void* all[kMaxCapture];
    const uint16_t n = Capture(0, kMaxCapture, all);
    uint32_t first = 0;
    // Frames of the capture routine itself, should it keep any, come before ours.
    while (first < n && !InThisModule(all[first])) ++first;
    while (first < n && InThisModule(all[first])) ++first;
    first = first + skip < n ? first + skip : n;
    const uint32_t taken = n - first < count ? n - first : count;
    memcpy(frames, all + first, taken * sizeof all[0]);
    return taken;
}

}  // namespace kv
