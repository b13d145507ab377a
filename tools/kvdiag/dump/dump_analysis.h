// What a dump says once its stacks are walked: the faulting thread's stack
// (or, for a dump without an exception, every thread's), the locks its
// threads wait for, and the crash signature that groups one fault across
// dumps and builds.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "dump/dump_locks.h"
#include "dump/dump_stack.h"

namespace kvdiag {

struct DumpAnalysis {
    bool hasException = false;
    DWORD exceptionCode = 0;
    ThreadStack faulting;             // with hasException
    std::vector<ThreadStack> threads; // every thread's, when walked
    LockReport locks;                 // from the threads walked
    // The exception code ("hang" or "deadlock" without one) and the first
    // three frames in modules that are not the system's, named without
    // offsets: "0xc0000005 | host!CrashHere | host!Run | host!main".
    std::string signature;
};

// Walks the faulting thread, and every thread with allThreads or when the
// dump records no exception (a hang).
DumpAnalysis AnalyzeDump(const DumpView& dump, const DumpStacks& stacks, bool allThreads);

// The first `count` frames of a stack in the product's modules, as module!function.
std::vector<std::string> ProductFrames(const ThreadStack& stack, size_t count);

}  // namespace kvdiag
