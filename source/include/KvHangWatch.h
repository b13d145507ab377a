// KvHangWatch.h - the crash handler's hang watchdog: a thread promises a
// heartbeat, and when it stays silent longer than it said, the crash handler
// writes a hang dump of the whole process (which keeps running) and says so
// in the system log.
#pragma once

#include "KvExport.h"

// Watches the calling thread: silent for `seconds` (at most a day) it counts
// as hung. Calling it again changes the time and counts as a heartbeat; 0
// stops watching the thread. Needs DbgHlpStartCrashHandler first. Returns 1;
// 0 when no crash handler is registered or 16 threads are watched already
// (the reason in the debug log). A thread that ends should stop its watch
// first; the handler drops a watched thread that has ended, without a dump.
KVDH_C_API int DbgHlpWatchForHang(unsigned int seconds);

// Says the calling thread is alive: one store into memory the crash handler
// reads, no system call and no lock, cheap enough for every turn of a loop.
// Does nothing on a thread that is not watched.
KVDH_C_API void DbgHlpHeartbeat(void);
