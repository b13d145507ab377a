// The debug log stream: opened lazily by the first write, flushed after every
// write, closed when a write fails or the file reaches its size limit.
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <io.h>

#include "KvLogging.h"
#include "frame/process_state.h"
#include "logging/cross_process_lock.h"
#include "logging/debug_log.h"
#include "logging/shared_stream.h"

namespace kv {

namespace {

FILE* logStream;  // guarded by DebugLogLock
HANDLE logHandle;  // the stream's handle, for the size check
// Serialises the writes of all processes sharing the file: appends from
// several processes are not atomic everywhere (Wine places them by a size
// check followed by a positioned write).
CrossProcessLock fileLock;
// Larger than any line, so a line (flushed at once) reaches the file in one write.
char logStreamBuffer[8192];

// Set while this thread composes the log path: a line the folder lookup writes
// meanwhile is dropped instead of recursing into another open.
thread_local bool composingPath;

bool Enabled() { return Settings.logErrors && LocksReady; }

// Composed outside DebugLogLock: the folder lookup takes the configuration's
// own locks, which must never be taken while this one is held.
bool LiveLogPath(char (&path)[MAX_PATH]) {
    if (composingPath) return false;
    composingPath = true;
    const int length = GetDebugLogFilePath(-1, 1, path, sizeof path);
    composingPath = false;
    return length > 0;
}

FILE* OpenLiveLog(const char* path) {
    FILE* stream = OpenSharedStream(path, StreamMode::AppendBinary);
    if (!stream) return nullptr;
    setvbuf(stream, logStreamBuffer, _IOFBF, sizeof logStreamBuffer);
    logHandle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    return stream;
}

// The size of the file the stream writes to (which may have been rolled into
// a history file by another process meanwhile).
long long StreamFileSize() {
    LARGE_INTEGER size;
    return GetFileSizeEx(logHandle, &size) ? size.QuadPart : -1;
}

}  // namespace

void AppendToDebugLog(const char* data, size_t length) {
    if (!Enabled()) return;
    EnterCriticalSection(&DebugLogLock);
    if (!logStream) {
        LeaveCriticalSection(&DebugLogLock);
        char path[MAX_PATH];
        if (!LiveLogPath(path) || !Enabled()) return;
        EnterCriticalSection(&DebugLogLock);
        if (!logStream && (logStream = OpenLiveLog(path)) != nullptr) fileLock.Attach(path);
        if (!logStream) {
            LeaveCriticalSection(&DebugLogLock);
            return;
        }
    }
    bool roll = false;
    {
        CrossProcessHold hold(fileLock);
        if (!hold.held() && fileLock.Attached()) {
            LeaveCriticalSection(&DebugLogLock);  // another process is stuck: the line is dropped
            return;
        }
        if (fwrite(data, 1, length, logStream) != length || fflush(logStream) != 0) {
            fclose(logStream);
            logStream = nullptr;
        } else if (StreamFileSize() >= static_cast<long long>(Settings.debugLogSize)) {
            // Closed under the lock, so no other thread can write to a closed stream.
            fclose(logStream);
            logStream = nullptr;
            roll = true;
        }
    }
    LeaveCriticalSection(&DebugLogLock);
    if (roll) RollDebugLog();
}

size_t DebugLogRoom() {
    EnterCriticalSection(&DebugLogLock);
    const long long size = logStream ? StreamFileSize() : 0;
    LeaveCriticalSection(&DebugLogLock);
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
