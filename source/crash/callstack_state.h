// State of the call-stack system shared with the memory manager.
#pragma once

#include <windows.h>
#include <stdint.h>

namespace kv {

#pragma GCC visibility push(hidden)  // defined in this DLL: reached directly (see process_state.h)

using CaptureStackFn = USHORT(WINAPI*)(ULONG skip, ULONG count, PVOID* frames, PULONG hash);

// RtlCaptureStackBackTrace, looked up at attach; null when missing.
extern CaptureStackFn CaptureStack;

struct InstrumentationSwitches {
    volatile bool symbolsReady = false;
    volatile bool callStackLogging = false;
    volatile bool locationLookup = false;      // light-mode allocations ask for their real site
    volatile bool instrumentedTrailers = false;
    volatile bool plainListing = false;        // heap report lists plain-trailer allocations too
    volatile bool reportAtUnload = false;
};
extern InstrumentationSwitches Instrumentation;

// Captures into frames; 0 when capture is unavailable.
inline uint16_t Capture(ULONG skip, ULONG count, void** frames, ULONG* hash = nullptr) {
    return CaptureStack ? CaptureStack(skip, count, frames, hash) : 0;
}

#pragma GCC visibility pop

}  // namespace kv
