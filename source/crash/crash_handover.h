// The crash path's side of the crash handler: at a crash, only fill the crash
// block, signal and wait. Everything it uses was prepared at registration.
#pragma once

#include <windows.h>

#include "crash/hang_watch_block.h"

namespace kv {

enum class Handover {
    kNoHandler,    // none registered (or this thread crashed in its own handover)
    kDumped,       // the handler wrote the dump (or reported why not)
    kNoAnswer,     // the handler did not take the request in time
    kHandlerGone,  // the handler ended before the dump was written
    kRefused,      // the handler refused to write it (its log folder no longer passes the checks)
};

// No heap, no lock, no file; a few hundred bytes of stack at most. The first
// crashing thread hands over; a second one waits for that dump and returns
// kDumped. With the handler's "hang" answer it never returns.
Handover HandCrashToHandler(EXCEPTION_POINTERS* pointers);

// The crash block's hang watch and the event that tells the handler it
// changed; both null while no handler is linked.
struct HangWatchLink {
    HangWatch* watch;
    HANDLE changed;
};
HangWatchLink LinkedHangWatch();

// Copies the component name into the crash block, for a handler that writes
// this process's crash files; called with the component name's lock held.
void PublishComponentName(const char* name);

}  // namespace kv
