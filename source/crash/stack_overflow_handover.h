// A stack overflow handed to the crash handler from a vectored exception
// handler, the first place the dispatch reaches: a thread whose stack
// overflowed may not have room left for the unhandled-exception filter (Wine
// ends such a thread before any filter runs).
#pragma once

#include <windows.h>

#include "crash/crash_handover.h"

namespace kv {

// Adds the vectored handler, first in line; once per process, at the first
// registration. It also pins the library: the crash block the handler reads
// and the vectored handler must outlive any FreeLibrary.
void InstallStackOverflowHandover();

enum class EarlierOverflow {
    kNone,        // no stack overflow was handed over (or its handover is still running)
    kThisCrash,   // pointers are the overflow the vectored handler handed over: outcome says how it went
    kOtherCrash,  // another crash after the handed-over overflow: the crash block is spent
};

// What GenerateMiniDump makes of the vectored handler's earlier handover.
EarlierOverflow EarlierOverflowHandover(const EXCEPTION_POINTERS* pointers, Handover& outcome);

}  // namespace kv
