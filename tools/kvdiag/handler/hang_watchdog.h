// The hang watchdog of one registered client: the threads it watches
// (DbgHlpWatchForHang) and their heartbeats, read from its crash block. A
// thread silent longer than its time gets one hang dump of the whole process
// (which runs on) and a system-log line; a new heartbeat arms it again.
#pragma once

#include <windows.h>
#include <stdint.h>

#include <string>

#include "crash/crash_handler_protocol.h"
#include "handler/client_activity.h"
#include "handler/handler_client.h"

namespace kvdiag {

// Runs on the client's serving thread: at registration, when the client says
// its hang watch changed, and while a thread is watched about once a second.
class HangWatchdog : public ClientActivity {
public:
    // Checks the watched threads; the next check's time, INFINITE while no
    // thread is watched, so such a client costs nothing.
    DWORD Run(const RegisteredClient& client) override;


private:
    struct Thread {
        bool watched = false, hung = false, gone = false;
        LONG threadId = 0, watchCount = 0, beats = 0;
        DWORD seconds = 0;
        ULONGLONG lastBeat = 0;  // this handler's clock, when the beats last changed
    };

    DWORD WaitMs() const;
    void ReportHang(const RegisteredClient& client, Thread& t, ULONGLONG silentMs);


    LONG crashingThread_ = 0;  // the crash block's, when last read
    Thread threads_[kv::kWatchedThreadSlots];
};

}  // namespace kvdiag
