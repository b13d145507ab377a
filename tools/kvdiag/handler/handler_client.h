// One registered client of the crash handler: its process, the events of its
// crash path and where its crash block lives, served on a thread of its own.
#pragma once

#include <windows.h>
#include <stdint.h>

#include <string>

#include "common/failure.h"
#include "crash/crash_handler_protocol.h"
#include "platform/owned_handle.h"

namespace kvdiag {

// The least the handler needs of a client: read its memory and write a
// dump (query, read), write the outcome into its crash block (write,
// operation), take its events (dup handle) and see it end.
constexpr DWORD kClientAccess = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_VM_WRITE |
                                PROCESS_VM_OPERATION | PROCESS_DUP_HANDLE | SYNCHRONIZE;

// Everything in it has passed the handler's checks (client_checks.h).
struct RegisteredClient {
    DWORD processId = 0;
    kv::platform::KernelHandle process;                 // kClientAccess
    kv::platform::KernelHandle request, started, done;  // its events, duplicated out of it
    kv::platform::KernelHandle watchChanged;            // set when its hang watch changes
    uint64_t block = 0;                   // its CrashBlock: committed, writable data
    std::string iniPath;                  // a local file naming an existing local log folder
    std::string componentName;            // a plain component name (or empty)
};

// Takes a registration that came from process registration.processId
// (checked on the pipe by the caller), connected at `connected`: opens the
// process, checks the registration and starts the thread that waits for the
// client's crash or its end. Fails with the reason when it is refused.
Failure ServeClient(const kv::CrashRegistration& registration, const FILETIME& connected);

// Clients registered and not yet ended.
long ClientCount();
// GetTickCount64 when the last client ended (or the handler started).
ULONGLONG LastClientEnded();

}  // namespace kvdiag
