// DbgHlpWatchForHang and DbgHlpHeartbeat: the client side of the hang
// watchdog. Each watched thread owns one slot of the crash block's hang
// watch; the handler reads the slots and keeps the times itself.
#include <algorithm>

#include "KvHangWatch.h"
#include "KvLogging.h"
#include "crash/crash_handover.h"

namespace {

kv::WatchedThread* SlotOf(kv::HangWatch& watch, LONG thread) {
    for (kv::WatchedThread& slot : watch.threads)
        if (slot.threadId == thread) return &slot;
    return nullptr;
}

kv::WatchedThread* TakeSlot(kv::HangWatch& watch, LONG thread) {
    for (kv::WatchedThread& slot : watch.threads)
        if (InterlockedCompareExchange(&slot.threadId, thread, 0) == 0) return &slot;
    return nullptr;
}

}  // namespace

extern "C" int DbgHlpWatchForHang(unsigned int seconds) {
    const kv::HangWatchLink link = kv::LinkedHangWatch();
    if (!link.watch) {
        DbgLogWrite("Hang watch: no crash handler is registered, thread %lu is not watched", GetCurrentThreadId());
        return 0;
    }
    const LONG self = static_cast<LONG>(GetCurrentThreadId());
    kv::WatchedThread* slot = SlotOf(*link.watch, self);
    if (seconds == 0) {
        if (!slot) return 1;
        slot->seconds = 0;
        MemoryBarrier();
        slot->threadId = 0;
    } else {
        if (!slot) {
            slot = TakeSlot(*link.watch, self);
            if (!slot) {
                DbgLogWrite("Hang watch: %d threads are watched already, thread %lu is not", kv::kWatchedThreadSlots,
                            GetCurrentThreadId());
                return 0;
            }
            slot->watchCount = slot->watchCount + 1;
        }
        slot->beats = slot->beats + 1;
        MemoryBarrier();
        slot->seconds = static_cast<LONG>(std::min(seconds, kv::kMostWatchSeconds));
    }
    SetEvent(link.changed);
    return 1;
}

extern "C" void DbgHlpHeartbeat(void) {
    const kv::HangWatchLink link = kv::LinkedHangWatch();
    if (!link.watch) return;
    kv::WatchedThread* slot = SlotOf(*link.watch, static_cast<LONG>(GetCurrentThreadId()));
    if (slot) slot->beats = slot->beats + 1;  // only this thread writes its slot's beats
}
