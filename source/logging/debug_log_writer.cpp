// The debug log's line queue. Threads of one process do not each wait for the
// file: a thread copies its line into the pending batch under the queue lock and,
// if no thread is writing, becomes the writer and writes the whole batch in one
// call; the others sleep until their batch is written. So the file's lock is
// contended by one thread per process, a busy process writes more lines per
// call instead of fewer, and every call still returns only after its line has
// reached the file (the log survives a crash of the caller).
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "KvLogging.h"
#include "frame/process_state.h"
#include "logging/debug_log.h"
#include "logging/debug_log_file.h"

namespace kv {

namespace {

constexpr size_t kBatchCapacity = 64 * 1024;
// Batches one writer writes before it hands the role on: more saves wake-ups,
// fewer bounds the writer's own call.
constexpr int kBatchesPerWriter = 4;
char batchBuffers[2][kBatchCapacity];

// Guards the queue: a slim lock rather than DebugLogLock, so that the threads
// of a written batch, woken together, take it shared to see that they are
// done instead of queueing one by one for a critical section.
SRWLOCK queueLock = SRWLOCK_INIT;
volatile LONG spinner;

void Lock() { AcquireSRWLockExclusive(&queueLock); }
void Unlock() { ReleaseSRWLockExclusive(&queueLock); }

// A condition variable that is only signalled when a thread sleeps on it (a
// wake-up is a system call). count changes under the shared lock: interlocked.
struct Sleepers {
    CONDITION_VARIABLE cv = CONDITION_VARIABLE_INIT;
    volatile LONG count = 0;
    // Called and returns with queueLock held exclusively.
    void Wait() {
        InterlockedIncrement(&count);
        SleepConditionVariableSRW(&cv, &queueLock, INFINITE, 0);
        InterlockedDecrement(&count);
    }
    // Called with queueLock held exclusively; sleeps holding it shared. True,
    // with the lock left, once finished(); else returns with it exclusive.
    template <typename Finished>
    bool WaitShared(Finished finished) {
        Unlock();
        AcquireSRWLockShared(&queueLock);
        bool done = finished();
        // One thread at a time spins briefly first: a batch is written in some
        // microseconds, about what falling asleep and waking costs.
        if (!done && !InterlockedExchange(&spinner, 1)) {
            ReleaseSRWLockShared(&queueLock);
            for (int i = 0; i < 2000 && !done; ++i) {
                YieldProcessor();
                done = (i & 15) == 15 && finished();
            }
            AcquireSRWLockShared(&queueLock);
            InterlockedExchange(&spinner, 0);
            done = finished();
        }
        if (!done) {
            InterlockedIncrement(&count);
            SleepConditionVariableSRW(&cv, &queueLock, INFINITE, CONDITION_VARIABLE_LOCKMODE_SHARED);
            InterlockedDecrement(&count);
            done = finished();
        }
        ReleaseSRWLockShared(&queueLock);
        if (!done) Lock();
        return done;
    }
    void WakeOne() {
        if (count) WakeConditionVariable(&cv);
    }
    void WakeAll() {
        if (count) WakeAllConditionVariable(&cv);
    }
};

// Guarded by queueLock.
struct LineQueue {
    char* pending = batchBuffers[0];
    char* spare = batchBuffers[1];
    size_t bytes = 0;
    unsigned lines = 0;
    unsigned long long collecting = 1;  // number of the pending batch
    // Batches up to this one are written or dropped; read unlocked by a spinner.
    volatile unsigned long long finished = 0;
    bool writing = false;
    char livePath[MAX_PATH] = "";
    bool pathKnown = false;
    // The threads of batch n sleep on done[n % 2], so finishing a batch wakes
    // only its own threads; the others (room in the buffer, the writer's role
    // for a large report) sleep on roleFree.
    Sleepers done[2];
    Sleepers roleFree;
} queue;

// Set while this thread composes the log path: a line the folder lookup writes
// meanwhile is dropped instead of recursing into another open.
thread_local bool composingPath;

bool Enabled() { return Settings.logErrors && LocksReady; }

// Composed outside every lock of the log: the folder lookup takes the
// configuration's own locks, and a thread holding one of those may be waiting
// for its line to be written.
bool LiveLogPath(char (&path)[MAX_PATH]) {
    composingPath = true;
    const int length = GetDebugLogFilePath(-1, 1, path, sizeof path);
    composingPath = false;
    return length > 0;
}

void Finish(unsigned long long number) {
    queue.finished = number;
    queue.done[number % 2].WakeAll();
    queue.roleFree.WakeAll();
}

// Called with queueLock held, no writer active and the path known: writes
// the pending batch (extra after it), and the batches that gather meanwhile,
// with the lock left during each write. True when a roll is due.
bool WritePending(const char* extra, size_t extraLength) {
    queue.writing = true;
    bool roll = false;
    for (int round = 0; round < kBatchesPerWriter && (queue.bytes || extra); ++round) {
        char* batch = queue.pending;
        const size_t bytes = queue.bytes;
        const unsigned lines = queue.lines;
        const unsigned long long number = queue.collecting++;
        queue.pending = queue.spare;
        queue.bytes = 0;
        queue.lines = 0;
        char path[MAX_PATH];
        memcpy(path, queue.livePath, sizeof path);
        Unlock();

        const BatchResult result = WriteBatchToLog(path, batch, bytes, lines, extra, extraLength);

        Lock();
        queue.spare = batch;
        extra = nullptr;
        Finish(number);
        if (result.forgetPath || result.roll) {
            // After a roll the live log's path is composed again.
            queue.pathKnown = false;
            roll = result.roll;
            break;
        }
    }
    queue.writing = false;
    queue.done[queue.collecting % 2].WakeOne();  // a thread of the pending batch takes over
    return roll;
}

// Called with queueLock held (and left meanwhile). False when the path
// cannot be composed: the pending lines are dropped (the product INI file is
// not validated yet, or the folder cannot be created).
bool ComposeLivePath() {
    Unlock();
    char path[MAX_PATH];
    const bool composed = LiveLogPath(path);
    Lock();
    if (composed && !queue.pathKnown) {
        memcpy(queue.livePath, path, sizeof path);
        queue.pathKnown = true;
    }
    if (queue.pathKnown) return true;
    queue.bytes = 0;
    queue.lines = 0;
    Finish(queue.collecting++);
    return false;
}

}  // namespace

void AppendToDebugLog(const char* data, size_t length) {
    if (!Enabled() || composingPath || length == 0) return;
    Lock();
    bool roll = false;
    if (length > kBatchCapacity) {
        // A report larger than a batch: its thread writes it itself, after the
        // lines pending before it.
        for (bool done = false; !done;) {
            if (queue.writing) queue.roleFree.Wait();
            else if (!queue.pathKnown) done = !ComposeLivePath();
            else roll = WritePending(data, length), done = true;
        }
    } else {
        while (queue.bytes + length > kBatchCapacity) queue.roleFree.Wait();
        memcpy(queue.pending + queue.bytes, data, length);
        queue.bytes += length;
        queue.lines++;
        const unsigned long long mine = queue.collecting;
        while (queue.finished < mine) {
            if (!queue.writing) {
                if (!queue.pathKnown) ComposeLivePath();
                else roll = WritePending(nullptr, 0) || roll;
            } else if (queue.done[mine % 2].WaitShared([&] { return queue.finished >= mine; })) {
                return;  // a writer of another thread wrote this line (so this thread rolls nothing)
            }
        }
    }
    Unlock();
    if (roll) RollDebugLog();
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
