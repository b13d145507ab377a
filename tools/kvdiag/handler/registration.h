// One connection to the crash handler's pipe: a registration read, checked
// and answered. The process on the other end of the pipe is the only one it
// can register.
#pragma once

#include <windows.h>

namespace kvdiag {

// A client that says nothing for this long is dropped (it delays nobody:
// every connection has a pipe instance and a thread of its own).
constexpr DWORD kRegistrationMs = 3000;

// Serves the connection made at `connected` on pipe; the caller disconnects.
void ServeConnection(HANDLE pipe, const FILETIME& connected);

}  // namespace kvdiag
