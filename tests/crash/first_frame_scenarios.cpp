// Child-host scenario: where each stack dump and capture starts. Every entry
// point is called from a named host function that is never inlined and whose
// call is never a jump (the empty asm after it), so that function's own frame
// is on the stack and must be the first frame reported.
#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "KvDebugHelp.h"
#include "scenario.h"
#include "temp_dir.h"
#include "text_checks.h"

#define KEEP_FRAME() asm volatile("" ::: "memory")

extern "C" {

__attribute__((noinline)) void CallerOfMemSafeCopy(char* dst) {
    MemSafeCopy(dst, "x", 0, 8);  // a zero count is reported
    KEEP_FRAME();
}
__attribute__((noinline)) void CallerOfKvMemSafeCopy(char* dst) {
    KvMemSafeCopy(dst, "x", 1);  // not an allocator pointer
    KEEP_FRAME();
}
__attribute__((noinline)) void CallerOfMemSafeMove(char* dst) {
    MemSafeMove(dst, "x", 0, 8);
    KEEP_FRAME();
}
__attribute__((noinline)) void CallerOfMemSafeSet(char* dst) {
    MemSafeSet(dst, 'x', 0, 8);
    KEEP_FRAME();
}
__attribute__((noinline)) void CallerOfosMemFree(char* notAllocated) {
    osMemFree(notAllocated);
    KEEP_FRAME();
}
__attribute__((noinline)) uint64_t CallerOfKvException() {
    KvException raised(1, "first frame", nullptr, "frames.cpp", 1);
    KEEP_FRAME();
    return raised.getCallStackArray()[0];
}
__attribute__((noinline)) void CallerOfLogInstrumentedAndKvcodeCallStacks() {
    LogInstrumentedAndKvcodeCallStacks(nullptr, 0);
    KEEP_FRAME();
}

}  // extern "C"

namespace {

// The symbol of a return address, through the symbol handler the library
// started (the call itself lies one byte before the address).
std::string SymbolOf(uint64_t returnAddress) {
    union {
        SYMBOL_INFO info;
        char bytes[sizeof(SYMBOL_INFO) + 256];
    } symbol{};
    symbol.info.SizeOfStruct = sizeof(SYMBOL_INFO);
    symbol.info.MaxNameLen = 256;
    DWORD64 displacement = 0;
    if (!SymFromAddr(GetCurrentProcess(), returnAddress - 1, &displacement, &symbol.info)) return "?";
    return symbol.info.Name;
}

// The first address of every raw stack dump in text: a dump is a run of lines
// whose message (after the timestamp) starts with "0x".
std::vector<uint64_t> RawDumpStarts(const std::string& text) {
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
std::string FirstSymbolicFrame(const std::string& text) {
    const size_t open = text.find(") ");
    return open == std::string::npos ? "?" : text.substr(open + 2, text.find('(', open) - open - 2);
}

// What the debug log gained since the last call.
std::string NewInDebugLog() {
    static size_t read = 0;
    char path[MAX_PATH] = "";
    GetDebugLogFilePath(-1, 1, path, sizeof path);
    const std::string text = kvtest::ReadFileText(path);
    const std::string added = text.substr(read < text.size() ? read : text.size());
    read = text.size();
    return added;
}

// "Entry: symbol ..." with the first frame of every dump written since the last call.
void PrintDumpStarts(const char* entry, const std::string& first = "") {
    printf("%s:%s", entry, first.c_str());
    for (uint64_t start : RawDumpStarts(NewInDebugLog())) printf(" %s", SymbolOf(start).c_str());
    printf("\n");
}

}  // namespace

// INI_PATH: for each entry point, "Entry: first-frame-symbol ..." with the
// first frame of every dump the call wrote (of the capture, for KvException).
KV_INI_SCENARIO(first_frames) {
    EnableCallStackAndAllocationInstrumentation(1, 0, const_cast<char*>(""), 0);
    NewInDebugLog();
    const struct { const char* entry; void (*call)(char*); } entries[] = {
        {"MemSafeCopy", CallerOfMemSafeCopy}, {"KvMemSafeCopy", CallerOfKvMemSafeCopy},
        {"MemSafeMove", CallerOfMemSafeMove}, {"MemSafeSet", CallerOfMemSafeSet}, {"osMemFree", CallerOfosMemFree}};
    for (const auto& e : entries) {
        char buffer[16] = "LLLLLLLLLLLLLLL";  // not an allocator pointer: no magic before it
        e.call(buffer + 8);
        PrintDumpStarts(e.entry);
    }
    PrintDumpStarts("KvException", " " + SymbolOf(CallerOfKvException()));  // the capture, then its banner dump
    CallerOfLogInstrumentedAndKvcodeCallStacks();
    printf("LogInstrumentedAndKvcodeCallStacks: %s\n", FirstSymbolicFrame(NewInDebugLog()).c_str());
    return 0;
}
