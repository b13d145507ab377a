// One registered client of the crash handler: its process, the events of its
// crash path and where its crash block lives, served on a thread of its own.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "crash/crash_handler_protocol.h"

namespace kvdiag {

// Takes the client's registration: opens the process, duplicates its events
// and starts the thread that waits for its crash or its end. False (with the
// reason said) when the client cannot be served.
bool ServeClient(const kv::CrashRegistration& registration);

// Clients registered and not yet ended.
long ClientCount();
// GetTickCount64 when the last client ended (or the handler started).
ULONGLONG LastClientEnded();

}  // namespace kvdiag
