#include "dump/dump_locks.h"

#include <algorithm>

namespace kvdiag {
namespace {

// How deep below the waiting thread's top the EnterCriticalSection frame may lie.
constexpr size_t kWaitDepth = 12;
constexpr uint64_t kMaxStackWords = 4096;
constexpr int kNonVolatile[] = {3, 5, 6, 7, 12, 13, 14, 15};  // rbx rbp rsi rdi r12..r15

// RTL_CRITICAL_SECTION and the head of RTL_CRITICAL_SECTION_DEBUG, 64-bit.
struct CriticalSection {
    uint64_t debugInfo;
    int32_t lockCount;
    int32_t recursionCount;
    uint64_t owningThread;
    uint64_t lockSemaphore;
    uint64_t spinCount;
};
struct CriticalSectionDebug {
    uint16_t type, creatorBackTraceIndex;
    uint32_t padding;
    uint64_t criticalSection;
};

bool IsEnterFrame(const StackFrame& f) {
    return f.module && f.module->operatingSystem &&
           (f.function.find("EnterCriticalSection") != std::string::npos ||
            f.function.find("WaitForCriticalSection") != std::string::npos ||
            f.function.find("WaitOnCriticalSection") != std::string::npos);
}

// 2: a critical section held by another thread of the dump whose debug
// record points back at it; 1: the same without a debug record to confirm
// it; 0: not one.
int LockScore(uint64_t address, DWORD waiter, const std::vector<DWORD>& threads, const DumpMemory& memory,
              DWORD& owner) {
    CriticalSection cs;
    if (address == 0 || address % 8 || !memory.Read(address, &cs, sizeof cs)) return 0;
    const bool known = std::find(threads.begin(), threads.end(), DWORD(cs.owningThread)) != threads.end();
    if (!known || cs.owningThread >> 32 || DWORD(cs.owningThread) == waiter || cs.recursionCount < 1 ||
        cs.recursionCount > 0xFFFF || cs.lockCount == -1)
        return 0;
    owner = DWORD(cs.owningThread);
    if (cs.debugInfo == 0 || cs.debugInfo == ~0ull) return 1;  // Windows 8 and later keep none by default
    CriticalSectionDebug debug;
    if (!memory.Read(cs.debugInfo, &debug, sizeof debug)) return 1;
    return debug.criticalSection == address ? 2 : 0;
}

LockWait FindWait(const ThreadStack& stack, size_t enterFrame, const std::vector<DWORD>& threads,
                  const DumpMemory& memory) {
    std::vector<uint64_t> candidates;
    for (size_t i = enterFrame + 1; i-- > 0;)
        for (int r : kNonVolatile) candidates.push_back(stack.frames[i].registers.gpr[r]);
    const uint64_t from = stack.frames[0].registers.gpr[4];
    const uint64_t to = enterFrame + 1 < stack.frames.size() ? stack.frames[enterFrame + 1].registers.gpr[4] + 0x40
                                                           : from + 0x400;
    for (uint64_t at = from; at < to && (at - from) / 8 < kMaxStackWords; at += 8) {
        uint64_t word;
        if (memory.Read64(at, word)) candidates.push_back(word);
    }
    LockWait wait;
    wait.waiter = stack.threadId;
    int best = 0;
    for (uint64_t c : candidates) {
        DWORD owner = 0;
        const int score = LockScore(c, stack.threadId, threads, memory, owner);
        if (score > best) {
            best = score;
            wait.lock = c;
            wait.owner = owner;
            if (score == 2) break;
        }
    }
    return wait;
}

}  // namespace

LockReport FindLockWaits(const std::vector<ThreadStack>& stacks, const DumpMemory& memory) {
    LockReport report;
    std::vector<DWORD> threads;
    for (const auto& s : stacks) threads.push_back(s.threadId);
    for (const auto& s : stacks) {
        // The outermost EnterCriticalSection frame near the top: the call the thread's own code made.
        size_t enter = SIZE_MAX;
        for (size_t i = 0; i < s.frames.size() && i < kWaitDepth; ++i)
            if (IsEnterFrame(s.frames[i])) enter = i;
        if (enter != SIZE_MAX) report.waits.push_back(FindWait(s, enter, threads, memory));
    }
    // Follow each waiter to the owner of its lock; a walk that returns to
    // where it started is a cycle, kept once (from its lowest thread id).
    auto waitOf = [&report](DWORD thread) -> const LockWait* {
        for (const auto& w : report.waits)
            if (w.waiter == thread && w.lock) return &w;
        return nullptr;
    };
    for (const auto& start : report.waits) {
        std::vector<LockWait> cycle;
        for (const LockWait* w = waitOf(start.waiter); w && cycle.size() <= report.waits.size(); w = waitOf(w->owner)) {
            cycle.push_back(*w);
            if (w->owner == start.waiter) break;
        }
        if (cycle.empty() || cycle.back().owner != start.waiter) continue;
        const bool lowest = std::all_of(cycle.begin(), cycle.end(), [&start](const LockWait& w) {
            return w.waiter >= start.waiter;
        });
        if (lowest) report.deadlocks.push_back(cycle);
    }
    return report;
}

}  // namespace kvdiag
