#include "dump/dump_analysis.h"

#include <ctype.h>
#include <stdio.h>

#include "dump/dump_threads.h"

namespace kvdiag {
namespace {

constexpr size_t kSignatureFrames = 3;

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string Signature(const std::string& what, const ThreadStack* stack) {
    std::string signature = what;
    if (stack)
        for (const auto& frame : ProductFrames(*stack, kSignatureFrames)) signature += " | " + frame;
    return signature;
}

}  // namespace

std::vector<std::string> ProductFrames(const ThreadStack& stack, size_t count) {
    std::vector<std::string> frames;
    for (const StackFrame& f : stack.frames) {
        if (frames.size() == count) break;
        if (!f.module || f.module->operatingSystem) continue;
        // Module names differ in case between systems and copies: one fault, one signature.
        const std::string module = Lower(f.module->name);
        if (!f.function.empty()) {
            frames.push_back(module + "!" + f.function);
        } else {
            char offset[32];
            snprintf(offset, sizeof offset, "+0x%llx", static_cast<unsigned long long>(f.address - f.module->base));
            frames.push_back(module + offset);
        }
    }
    return frames;
}

DumpAnalysis AnalyzeDump(const DumpView& dump, const DumpStacks& stacks, bool allThreads) {
    DumpAnalysis a;
    CONTEXT context;
    DWORD threadId = 0;
    if (const auto* e = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream)) {
        a.hasException = true;
        a.exceptionCode = e->ExceptionRecord.ExceptionCode;
        a.faulting.threadId = e->ThreadId;
    }
    if (a.hasException && ExceptionContext(dump, context, threadId) && !stacks.modules().empty())
        a.faulting = stacks.Walk(threadId, context);
    if (allThreads || !a.hasException) {
        for (const DumpThread& t : ThreadsOf(dump)) {
            if (t.haveContext && !stacks.modules().empty()) {
                a.threads.push_back(stacks.Walk(t.id, t.context));
            } else {
                ThreadStack none;
                none.threadId = t.id;
                none.stop = t.haveContext ? "" : "no register context in the dump";
                a.threads.push_back(none);
            }
        }
        a.locks = FindLockWaits(a.threads, stacks.memory());
    }
    if (a.hasException) {
        char code[16];
        snprintf(code, sizeof code, "0x%08lx", static_cast<unsigned long>(a.exceptionCode));
        a.signature = Signature(code, &a.faulting);
    } else if (!a.locks.deadlocks.empty()) {
        const DWORD first = a.locks.deadlocks.front().front().waiter;
        const ThreadStack* stack = nullptr;
        for (const auto& t : a.threads)
            if (t.threadId == first) stack = &t;
        a.signature = Signature("deadlock", stack);
    } else {
        // A hang without a lock cycle: where the first thread (the process's main thread) stands.
        a.signature = Signature("hang", a.threads.empty() ? nullptr : &a.threads.front());
    }
    return a;
}

}  // namespace kvdiag
