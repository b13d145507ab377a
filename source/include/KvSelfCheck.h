// KvSelfCheck.h - the library's built-in check for a plant machine.
//
// The checks exercise the library's own functions inside the calling process
// without disturbing it: they work on private temporary files and elements and
// leave the debug mode, the settings and the product files as they were. Each
// check is recorded as PASS, FAIL or SKIP with its reason (and, when error
// codes are switched on, the Win32 error of a failure). The record belongs to
// the process; every Run... call starts it afresh, and the host may add its
// own checks and notes to it before printing the summary.
#pragma once

#include <stdint.h>
#include "KvExport.h"

#ifdef __cplusplus
extern "C" {
#endif

// A host's own check for call_test: returns non-zero for pass and may write a
// reason (NUL-terminated, at most reasonSize bytes including the terminator).
typedef int (*KvSelfCheckFn)(char* reason, uint32_t reasonSize);

// The start-up checks, usable at any time: settings read, shared locks
// created and usable, stack capture, symbols resolvable. Returns the number of
// failed checks.
KVDH_C_API int RunKvDebugHelpTests(void);

// The start-up checks and then those that need the validated product INI
// file: every product folder resolvable and writable, debug log and system
// log writable, a guarded element's overrun detected (on a private element;
// the detection writes its "Memory error" report, announced by a line before
// it, to the debug log), a light dump written to the log folder and read back.
// Returns the number of failed checks.
KVDH_C_API int RunKvDebugHelpTestsAfterStartup(void);

// The summary of the record on the console (stdout). Returns the number of
// failed checks.
KVDH_C_API int PrintUnitTestSummary(void);

// The summary into a file: a bare name (null or "" means
// "KvDebugHelpSelfCheck.txt") goes into the product log folder, a path with a
// folder is used as given. The file is replaced. Returns 0 or the Win32 error
// (ERROR_PATH_NOT_FOUND when the log folder is not available).
KVDH_C_API uint32_t PrintUnitTestSummaryToFile(const char* fileName);

// Prints the current directory on the console and notes it in the record.
// Returns its length, or -2 when it cannot be read.
KVDH_C_API int PrintCurrentPath(void);

// Prints the full path that name resolves to from the current directory
// ("<name>: <path>") and notes it in the record. Returns the path's length, -2
// for a null or empty name or a path that cannot be resolved.
KVDH_C_API int PrintCurrentPathWithName(const char* name);

// A printf-style note in the record (shown in the summary as NOTE) and on the
// console. Notes are cut at 511 characters.
KVDH_C_API void Log(const char* format, ...);

// Records one check of the host's: passed non-zero is PASS. For a failure with
// error codes on, the calling thread's last error is recorded with it.
// Returns passed (0 or 1).
KVDH_C_API int log_test(const char* name, int passed, const char* reason);

// Runs a host's check (last error cleared first) and records it like log_test.
// A null check is recorded as a failure. Returns 1 for pass, 0 for fail.
KVDH_C_API int call_test(const char* name, KvSelfCheckFn check);

// Switches the recording of Win32 errors with failures on (non-zero) or off
// (the default). Returns the previous setting.
KVDH_C_API int SetLog_ErrorCodes(int on);

#ifdef __cplusplus
}
#endif
