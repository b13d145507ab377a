// Child-host scenario: where each stack dump and capture starts. Every entry
// point is called from a named host function that is never inlined and whose
// call is never a jump (the empty asm after it), so that function's own frame
// is on the stack and must be the first frame reported.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "KvDebugHelp.h"
#include "scenario.h"
#include "temp_dir.h"
#include "text_checks.h"

#define KEEP_FRAME() asm volatile("" ::: "memory")
#define CALLER_OF(entry, call) \
    __attribute__((noinline)) void CallerOf##entry([[maybe_unused]] char* dst) { call; KEEP_FRAME(); }

extern "C" {

CALLER_OF(MemSafeCopy, MemSafeCopy(dst, "x", 0, 8))  // a zero count is reported
CALLER_OF(KvMemSafeCopy, KvMemSafeCopy(dst, "x", 1))  // not an allocator pointer
CALLER_OF(MemSafeMove, MemSafeMove(dst, "x", 0, 8))
CALLER_OF(MemSafeSet, MemSafeSet(dst, 'x', 0, 8))
CALLER_OF(osMemFree, osMemFree(dst))
CALLER_OF(LogInstrumentedAndKvcodeCallStacks, LogInstrumentedAndKvcodeCallStacks(nullptr, 0))
__attribute__((noinline)) uint64_t CallerOfKvException() {
    KvException raised(1, "first frame", nullptr, "frames.cpp", 1);
    KEEP_FRAME();
    return raised.getCallStackArray()[0];
}

}  // extern "C"

// The first address of every raw stack dump in text: a dump is a run of lines
// whose message (after the timestamp) starts with "0x".
static std::vector<uint64_t> RawDumpStarts(const std::string& text) {
    std::vector<uint64_t> starts;
    bool inDump = false;
    for (const std::string& line : kvtest::SplitLines(text)) {
        const size_t tab = line.find('\t');
        const size_t message = tab == std::string::npos ? tab : line.find(' ', tab);
        const bool dumpLine = message != std::string::npos && line.compare(message + 1, 2, "0x") == 0;
        if (dumpLine && !inDump) starts.push_back(strtoull(line.c_str() + message + 1, nullptr, 16));
        inDump = dumpLine;
    }
    return starts;
}

// The symbol of the first line of a symbolic stack: "(module) Symbol(0x...".
static std::string FirstSymbolicFrame(const std::string& text) {
    const size_t open = text.find(") ");
    return open == std::string::npos ? "?" : text.substr(open + 2, text.find('(', open) - open - 2);
}

// What the debug log gained since the last call.
static std::string NewInDebugLog() {
    static size_t read = 0;
    char path[MAX_PATH] = "";
    GetDebugLogFilePath(-1, 1, path, sizeof path);
    const std::string text = kvtest::ReadFileText(path);
    const std::string added = text.substr(read < text.size() ? read : text.size());
    read = text.size();
    return added;
}

// "first frames of Entry: ok" when the given first frames and those of the raw
// dumps written since the last call all are CallerOf<Entry>; otherwise what was
// found instead. A dump's frame is looked up one byte before its return
// address, where the call lies.
static void ReportFirstFrames(const std::string& entry, std::vector<std::string> firsts = {}) {
    for (uint64_t start : RawDumpStarts(NewInDebugLog())) firsts.push_back(SymbolAt(start - 1));
    std::string wrong = firsts.empty() ? " no stack" : "";
    for (const auto& symbol : firsts)
        if (symbol != "CallerOf" + entry) wrong += " " + symbol;
    printf("first frames of %s:%s\n", entry.c_str(), wrong.empty() ? " ok" : wrong.c_str());
}

// INI_PATH: for each entry point, "first frames of Entry: ok" when every dump
// the call wrote (and the capture, for KvException) starts at its caller.
KV_INI_SCENARIO(first_frames) {
    EnableCallStackAndAllocationInstrumentation(1, 0, const_cast<char*>(""), 0);
    NewInDebugLog();
    const struct { const char* entry; void (*call)(char*); } entries[] = {
        {"MemSafeCopy", CallerOfMemSafeCopy}, {"KvMemSafeCopy", CallerOfKvMemSafeCopy},
        {"MemSafeMove", CallerOfMemSafeMove}, {"MemSafeSet", CallerOfMemSafeSet}, {"osMemFree", CallerOfosMemFree}};
    for (const auto& e : entries) {
        char buffer[16] = "LLLLLLLLLLLLLLL";  // not an allocator pointer: no magic before it
        e.call(buffer + 8);
        ReportFirstFrames(e.entry);
    }
    ReportFirstFrames("KvException", {SymbolAt(CallerOfKvException() - 1)});  // the capture, then its banner dump
    CallerOfLogInstrumentedAndKvcodeCallStacks(nullptr);
    ReportFirstFrames("LogInstrumentedAndKvcodeCallStacks", {FirstSymbolicFrame(NewInDebugLog())});
    return 0;
}
