// Call stacks of a minidump's threads, unwound from their recorded contexts
// with the unwind data of each module's image (found by identity, see
// dump/module_files.h) over the stack memory in the dump, and named through
// the PDBs found the same way: "module!function+0xoffset (file:line)".
#pragma once

#include <windows.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "dump/dump_memory.h"
#include "dump/module_files.h"
#include "dump/x64_unwind.h"

namespace kvdiag {

struct StackFrame {
    uint64_t address = 0;
    const DumpModule* module = nullptr;  // null outside every module
    std::string function;                // empty when not named
    uint64_t displacement = 0;
    std::string file;
    unsigned line = 0;
    UnwindRegisters registers{};  // the integer registers as they were in this frame

    // "module!function+0x1c (file.cpp:22)", "module+0x281d" or the bare address.
    std::string Text() const;
};

struct ThreadStack {
    DWORD threadId = 0;
    std::vector<StackFrame> frames;  // innermost first
    std::string stop;                // why the walk ended early; empty when it reached the end
};

struct WalkOptions {
    SymbolPath symbols;
    bool findFiles = true;   // look for images and PDBs at all
    bool nameFrames = true;  // read PDBs (off: module+offset only)
};

// The dump's modules with their files and a private symbol session over them.
class DumpStacks {
public:
    DumpStacks(const DumpView& dump, const std::string& dumpPath, const WalkOptions& options);
    ~DumpStacks();
    DumpStacks(const DumpStacks&) = delete;
    DumpStacks& operator=(const DumpStacks&) = delete;

    const std::vector<DumpModule>& modules() const { return modules_; }
    const DumpMemory& memory() const { return memory_; }
    bool namesFrames() const { return ready_; }

    ThreadStack Walk(DWORD threadId, const CONTEXT& context) const;
    // "module!variable" for the address of a named global (a lock); empty otherwise.
    std::string DataName(uint64_t address) const;

private:
    // Loads a module's symbols the first time one of its addresses is named:
    // a dump lists dozens of system modules its stacks never touch.
    void LoadSymbols(const DumpModule& m) const;
    void Name(StackFrame& frame, bool returnAddress) const;
    std::string CopyForDbgHelp(const DumpModule& m) const;

    DumpMemory memory_;
    mutable std::vector<DumpModule> modules_;  // symbolsLoaded changes as modules are loaded
    mutable std::vector<bool> loadTried_;
    mutable std::vector<std::string> copies_;  // rebuilt images written for DbgHelp, removed at the end
    HANDLE session_;
    bool ready_ = false;
};

// The exception's thread and context; false when the dump records none.
bool ExceptionContext(const DumpView& dump, CONTEXT& context, DWORD& threadId);

}  // namespace kvdiag
