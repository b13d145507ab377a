// The crash handler a test did not start. A host's registration starts one
// that serves on for a minute after its last client, so a handler left by an
// earlier test would answer the next test's clients in its place.
#pragma once

namespace kvtest {

// Ends the crash handler serving this account and session's pipe, and any
// other process holding that name: true once no process serves it.
bool EndRunningCrashHandler();

}  // namespace kvtest
