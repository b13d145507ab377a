// The debug log's writer: the line queue (line_queue.h) over the live file,
// and the way around it once the process is ending.
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "KvLogging.h"
#include "frame/process_state.h"
#include "logging/debug_log.h"
#include "logging/debug_log_file.h"
#include "logging/line_queue.h"
#include "logging/slim_sync.h"

namespace kv {

namespace {

constexpr size_t kBatchCapacity = 64 * 1024;
// Batches one writer writes before it hands the role on. A writer that goes
// on writes others' lines instead of making its next one, so batches stay
// small; one that hands on after each batch pays a wake per batch. Two
// measured best from 2 to 8 threads on 2 cores.
constexpr int kBatchesPerWriter = 2;
char batchBuffers[2][kBatchCapacity];

// Set while this thread composes the log's paths (to open or roll it): a line
// the folder lookup writes meanwhile is dropped instead of recursing.
thread_local bool composingPath;

// Composed outside every lock of the log: the folder lookup takes the
// configuration's own locks, and a thread holding one of those may be waiting
// for its line to be written.
bool LiveLogPath(char (&path)[MAX_PATH]) {
    composingPath = true;
    const int length = GetDebugLogFilePath(-1, 1, path, sizeof path);
    composingPath = false;
    return length > 0;
}

// The writer rolls a full file itself, holding the writer's role meanwhile,
// so no other thread of this process writes to it while the roll is due.
void RollWhileWriting() {
    composingPath = true;
    RollDebugLog();
    composingPath = false;
}

// Rolls of one batch after which the rest goes unsplit (the roll keeps failing:
// the history is held, the folder read-only).
constexpr int kRollsPerBatch = 8;

// Writes all of data, rolling where the file fills.
BatchResult WriteSplitAtRoll(const char* path, const char* data, size_t length, unsigned lines) {
    bool rolled = false;
    for (int rolls = 0;; ++rolls) {
        BatchResult result = WriteBatchToLog(path, data, length, lines, rolls < kRollsPerBatch);
        if (result.roll) {
            RollWhileWriting();
            rolled = true;
        }
        result.roll = false;
        if (result.taken >= length || result.forgetPath) {
            // After a roll the live name may have changed (a component named
            // since): the queue composes it afresh instead of keeping this one.
            result.forgetPath = result.forgetPath || rolled;
            return result;
        }
        const unsigned done = unsigned(std::count(data, data + result.taken, '\n'));
        lines = lines > done ? lines - done : 0;
        data += result.taken;
        length -= result.taken;
    }
}

struct LogFileSink {
    bool ComposePath(char (&path)[MAX_PATH]) { return LiveLogPath(path); }
    BatchResult Write(const char* path, const char* bytes, size_t length, unsigned lines, const char* extra,
                      size_t extraLength) {
        const BatchResult result = WriteSplitAtRoll(path, bytes, length, lines);
        if (!extra) return result;
        const unsigned reportLines = unsigned(std::count(extra, extra + extraLength, '\n'));
        BatchResult report = WriteSplitAtRoll(path, extra, extraLength, reportLines);
        report.forgetPath = report.forgetPath || result.forgetPath;
        return report;
    }
};

SlimSync queueSync(AddressWaits::Found());
LogFileSink logSink;
LineQueue<SlimSync, LogFileSink> queue(queueSync, logSink, batchBuffers[0], batchBuffers[1], kBatchCapacity,
                                       kBatchesPerWriter);

bool Enabled() { return Settings.logErrors && LocksReady; }

// Once the process is ending, other threads may have been killed anywhere,
// holding the queue: lines go to the file directly, under no lock of this
// process.
void WriteWhileEnding(const char* data, size_t length) {
    char path[MAX_PATH];
    const char* known = queue.LastPath();
    if (known[0]) {
        strncpy(path, known, sizeof path - 1);
        path[sizeof path - 1] = '\0';
    } else if (!LiveLogPath(path)) {
        return;
    }
    WriteToLogDirectly(path, data, length);
}

}  // namespace

void AppendToDebugLog(const char* data, size_t length) {
    if (!Enabled() || composingPath || length == 0) return;
    if (ProcessEnding()) return WriteWhileEnding(data, length);
    if (queue.Append(data, length)) RollDebugLog();
}

size_t DebugLogRoom() {
    const long long size = DebugLogSizeSeen();
    const long long limit = static_cast<long long>(Settings.debugLogSize);
    return size < 0 || size >= limit ? 0 : size_t(limit - size);
}

}  // namespace kv

extern "C" void DbgFileWrite(const char* format, ...) {
    if (!format || !kv::Settings.logErrors) return;
    char text[4096];
    char translated[2 * sizeof text];
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (length >= 0 && size_t(length) < sizeof text) {
        kv::AppendToDebugLog(translated, kv::ToCrLf(text, size_t(length), translated));
    } else if (length > 0) {
        // A long multi-line report: the rare case that may use the heap.
        char* large = static_cast<char*>(malloc(size_t(length) * 3 + 1));
        if (large) {
            char* largeTranslated = large + length + 1;
            vsnprintf(large, size_t(length) + 1, format, again);
            kv::AppendToDebugLog(largeTranslated, kv::ToCrLf(large, size_t(length), largeTranslated));
            free(large);
        }
    }
    va_end(again);
}
