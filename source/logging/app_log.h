// The record behind an application log handle, and the process's routing of
// system-log events into one of them.
#pragma once

#include <windows.h>
#include <stdio.h>
#include <stdint.h>

struct LogFile {
    char path[MAX_PATH];
    FILE* stream;      // null after a failed reopen: the log then ignores writes
    uint32_t maxSize;  // bytes; archived once the file is larger
    bool keepOpen;     // false: closed and reopened after every write
    CRITICAL_SECTION lock;
};

namespace kv {

#pragma GCC visibility push(hidden)  // defined in this DLL: reached directly (see process_state.h)

// The application log that receives system-log events, or null. Read and set
// without a lock, as a plain pointer.
extern LogFile* volatile ApplicationSyslog;

#pragma GCC visibility pop

}  // namespace kv
