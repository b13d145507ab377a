// What the crash handler checks in what a client gives it: paths must be
// local, the dump goes only into the log folder the client's INI file names,
// names must be plain component names, handles must be the client's events
// and the crash block its writable data.
#pragma once

#include <windows.h>
#include <stdint.h>

#include <string>

#include "common/failure.h"

namespace kvdiag {

// True when path is a full path on a local drive: a drive letter and ":\",
// no further ':' (no alternate stream), not a network drive, and still so
// when made full (a device name such as "C:\x\CON" becomes "\\.\CON"). UNC
// and device paths (\\server\share, \\?\, \\.\) are refused, so that the
// handler never authenticates to another machine on a client's word.
Failure IsLocalPath(const std::string& path);

// The log folder ("LOGS" of "KVEDIT") of a client's INI file: the INI file a
// local file, the folder a full local path to an existing folder that is not
// a link. The handler creates nothing on a client's word. Fails with the
// reason otherwise.
Failure ClientLogFolder(const std::string& iniPath, std::string& folder);

// A handle value of the client's, duplicated out of the process with the
// access an event needs; null unless it is an event.
HANDLE DuplicateClientEvent(HANDLE process, uint64_t value);

// True when size bytes at address are committed, writable data of the
// process (never code, never a guard page), so the handler's writes there
// can only reach the client's own data.
bool IsClientData(HANDLE process, uint64_t address, size_t size);

}  // namespace kvdiag
