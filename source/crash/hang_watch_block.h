// The hang watch: threads of a registered process that promised a heartbeat,
// kept in the crash block the handler already reads. Each thread writes only
// its own slot; the handler only reads (ReadProcessMemory) and keeps the
// times itself, so nothing here is a time the handler has to believe.
#pragma once

#include <windows.h>
#include <stdint.h>

namespace kv {

constexpr int kWatchedThreadSlots = 16;
constexpr unsigned kMostWatchSeconds = 24 * 60 * 60;

struct WatchedThread {
    volatile LONG threadId;  // 0: a free slot
    volatile LONG seconds;   // silence that counts as a hang; 0 while the slot is being taken or given up
    volatile LONG watchCount;  // counts the slot's watches: a new watch is a new thread to the handler
    volatile LONG beats;       // counts heartbeats; only a change matters
};

struct HangWatch {
    WatchedThread threads[kWatchedThreadSlots];
};

}  // namespace kv
