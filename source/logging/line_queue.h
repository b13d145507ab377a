// The debug log's line queue. Threads of one process do not each wait for the
// file: a thread copies its line into the pending batch and, if no thread is
// writing, becomes the writer and writes the whole batch in one call; the
// others sleep until their batch is written. So the file's lock is contended
// by one thread per process, a busy process writes more lines per call, and
// every call still returns only after its line has reached the file.
//
// The rules, which every change to this class must keep:
//  1. Every field changes only with the queue's lock held.
//  2. One thread at a time holds the writer's role (writing_). Only it
//     composes the path, takes the pending batch, writes it (with the lock
//     left meanwhile) and marks it finished; a thread writes at most
//     batchesPerWriter batches before it gives the role up.
//  3. A thread sleeps only after it has seen, with the lock held, that
//     another thread holds the role. A thread whose line is unwritten, or
//     that waits for room, and finds the role free takes it.
//  4. Finishing a batch wakes every sleeper of that batch and every thread
//     waiting for room or for the role. Giving the role up wakes one sleeper
//     of the pending batch and every thread waiting for the role.
//  So no wake-up is lost: whenever nobody writes, every thread with an
//  unwritten line is awake or has been woken, and takes the role itself.
//  A sleeper of a batch wakes without the lock and reads finished_ alone: a
//  finished batch's threads return at once instead of queueing for the lock
//  one after the other while the writer needs it for the next batch.
//  5. A writer that dies (its thread killed at process exit) never gives the
//     role up. The queue is therefore bypassed once the process is ending
//     (see debug_log_writer.cpp); no thread may wait on it from then on.
//
// Sync gives the lock and the sleeps (Lock, Unlock, Sleep, Park - a sleep
// that wakes without the lock -, WakeOne, WakeAll on a Sync::Signal, each
// called with the lock held; slim_sync.h is the library's); Sink composes the
// live path and writes a batch. Both are parameters so a test can drive every
// interleaving of a few threads.
#pragma once

#include <windows.h>
#include <string.h>

#include "logging/debug_log_file.h"

namespace kv {

template <class Sync, class Sink>
class LineQueue {
public:
    // Two buffers of capacity bytes each: one collects while the other is written.
    LineQueue(Sync& sync, Sink& sink, char* first, char* second, size_t capacity, int batchesPerWriter)
        : sync_(sync), sink_(sink), pending_(first), spare_(second), capacity_(capacity),
          batchesPerWriter_(batchesPerWriter) {}
    LineQueue(const LineQueue&) = delete;
    LineQueue& operator=(const LineQueue&) = delete;

    // Returns once data (whole lines) is written or dropped. True when this
    // thread wrote a batch that filled the file: the caller rolls it.
    bool Append(const char* data, size_t length) {
        sync_.Lock();
        bool roll = false;
        if (length > capacity_) {
            // Larger than a batch: its thread writes it itself as the writer,
            // after the lines pending before it.
            while (writing_) Wait(roleFree_);
            roll = Write(data, length);
        } else {
            while (bytes_ + length > capacity_) {
                if (writing_) Wait(roleFree_);
                else roll = Write(nullptr, 0) || roll;
            }
            memcpy(pending_ + bytes_, data, length);
            bytes_ += length;
            lines_++;
            const unsigned long long mine = collecting_;
            while (finished_ < mine) {
                if (!writing_) {
                    roll = Write(nullptr, 0) || roll;
                    continue;
                }
                Waiters& batch = done_[mine % 2];
                ++batch.sleeping;
                sync_.Park(batch.signal);
                if (finished_ >= mine) return roll;
                sync_.Lock();
            }
        }
        sync_.Unlock();
        return roll;
    }

    // The live path the writer last used (empty before); for a caller that
    // no longer may wait on the queue. Read without the lock.
    const char* LastPath() const { return livePath_; }

private:
    // Sleepers are counted by themselves and uncounted by their waker, so a
    // parked thread that returns without the lock leaves the count right;
    // never below the threads asleep, so no wake is skipped.
    struct Waiters {
        typename Sync::Signal signal{};
        unsigned sleeping = 0;
    };

    void Wait(Waiters& w) {
        ++w.sleeping;
        sync_.Sleep(w.signal);
    }
    void WakeOne(Waiters& w) {
        if (!w.sleeping) return;
        --w.sleeping;
        sync_.WakeOne(w.signal);
    }
    void WakeAll(Waiters& w) {
        if (!w.sleeping) return;
        w.sleeping = 0;
        sync_.WakeAll(w.signal);
    }

    void Finish(unsigned long long number) {
        finished_ = number;
        WakeAll(done_[number % 2]);
        WakeAll(roleFree_);
    }

    // The pending batch leaves the queue: its number, and the other buffer
    // starts collecting.
    unsigned long long TakeBatch() {
        pending_ = spare_;
        bytes_ = 0;
        lines_ = 0;
        return collecting_++;
    }

    // Lock held, role free: takes the role, writes the pending batch (extra
    // after it) and those that gather meanwhile, then gives the role up.
    bool Write(const char* extra, size_t extraLength) {
        writing_ = true;
        bool roll = false;
        for (int round = 0; round < batchesPerWriter_ && (bytes_ || extra); ++round) {
            if (!pathKnown_) {
                sync_.Unlock();
                const bool composed = sink_.ComposePath(livePath_);
                sync_.Lock();
                if (!composed) {
                    // Not loggable yet (the product INI file is not validated,
                    // the folder cannot be made): the lines are dropped.
                    Finish(TakeBatch());
                    break;
                }
                pathKnown_ = true;
            }
            char* batch = pending_;
            const size_t bytes = bytes_;
            const unsigned lines = lines_;
            const unsigned long long number = TakeBatch();
            sync_.Unlock();
            const BatchResult result = sink_.Write(livePath_, batch, bytes, lines, extra, extraLength);
            sync_.Lock();
            spare_ = batch;
            extra = nullptr;
            extraLength = 0;
            Finish(number);
            if (result.forgetPath || result.roll) {
                // After a roll, or when the file cannot be opened, the path is composed again.
                pathKnown_ = false;
                roll = result.roll;
                break;
            }
        }
        writing_ = false;
        WakeOne(done_[collecting_ % 2]);
        WakeAll(roleFree_);
        return roll;
    }

    Sync& sync_;
    Sink& sink_;
    char* pending_;
    char* spare_;
    const size_t capacity_;
    const int batchesPerWriter_;
    size_t bytes_ = 0;
    unsigned lines_ = 0;
    unsigned long long collecting_ = 1;  // number of the pending batch
    // Batches up to this one are written or dropped; also read by a parked
    // thread without the lock, as one aligned word.
    volatile unsigned long long finished_ = 0;
    bool writing_ = false;
    bool pathKnown_ = false;             // livePath_ is changed by the writer only
    char livePath_[MAX_PATH] = "";
    // The threads of batch n sleep on done_[n % 2], so finishing a batch wakes
    // only its own threads; the others (room, the role for a large report)
    // sleep on roleFree_.
    Waiters done_[2];
    Waiters roleFree_;
};

}  // namespace kv
