// The live debug log file as this process writes it: one handle, opened for
// append-only access, written in whole batches of lines under the lock shared
// by the processes of the file. Used by one thread at a time (the writer of
// the line queue).
#pragma once

#include <stddef.h>

namespace kv {

struct BatchResult {
    bool roll = false;        // the file reached its size limit and was closed
    bool forgetPath = false;  // the file could not be opened: compose its path anew
};

// Writes count lines (bytes, whole lines with CR LF) and then extra (may be
// null) to the live log at livePath, opening it first when needed. Lines that
// cannot be written (the lock stayed taken, the disk is full) are counted, and
// the next batch that gets through starts with a line saying how many.
BatchResult WriteBatchToLog(const char* livePath, const char* bytes, size_t length, unsigned count,
                            const char* extra, size_t extraLength);

// The open file's size after the last batch written to it, 0 while none is
// open; read without waiting for the writer.
long long DebugLogSizeSeen();

}  // namespace kv
