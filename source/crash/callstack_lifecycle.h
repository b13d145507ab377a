// The call-stack system's part of the library's attach and detach sequences.
#pragma once

namespace kv {

// Attach: create CallStackLock and look up RtlCaptureStackBackTrace.
void StartCallStackSystem();

// Detach, after DebugLogLock and MemoryLock are gone: delete CallStackLock and
// release the symbol handler when it was initialised.
void StopCallStackSystem();

}  // namespace kv
