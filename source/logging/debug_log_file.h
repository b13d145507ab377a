// The live debug log file as this process writes it: one handle, opened for
// append-only access, written in whole batches of lines under the lock shared
// by the processes of the file. Used by one thread at a time (the writer of
// the line queue).
#pragma once

#include <windows.h>
#include <stddef.h>

#include "logging/cross_process_lock.h"

namespace kv {

struct BatchResult {
    bool roll = false;        // the file reached its size limit and was closed
    bool forgetPath = false;  // the file could not be opened: compose its path anew
    size_t taken = 0;         // bytes written or dropped; fewer than given when the file filled first
};

// Writes count lines (bytes, whole lines with CR LF) to the live log at
// livePath, opening it first when needed; with split, only as many as fit:
// up to and including the line that reaches the size limit. Lines that cannot be
// written (not openable, the lock stayed taken, the disk is full) are counted,
// and the next batch that gets through starts with a line saying how many.
BatchResult WriteBatchToLog(const char* livePath, const char* bytes, size_t length, unsigned count, bool split);

// Appends bytes (whole lines) to the file at path through a handle of its
// own, under the processes' lock but no lock of this process: for the lines of
// a process that is ending, whose other threads may have died mid-write.
void WriteToLogDirectly(const char* path, const char* bytes, size_t length);

// What the writers of the session are told of a roll of the file open as
// file: that it is being moved (from construction), then that it left the
// live log's name (their next line opens the live path anew) or stayed.
class RollNotice {
public:
    explicit RollNotice(HANDLE file);
    void Done(bool moved);

private:
    CrossProcessLock lock_;
};

// The open file's size after the last batch written to it, 0 while none is
// open; read without waiting for the writer.
long long DebugLogSizeSeen();

}  // namespace kv
