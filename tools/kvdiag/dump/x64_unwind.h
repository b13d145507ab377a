// One step of an x64 stack walk: from a frame's registers to its caller's,
// using the unwind data (.pdata/.xdata) of the module image read from disk and
// the stack memory of a dump.
#pragma once

#include <stdint.h>

#include "dump/dump_memory.h"
#include "dump/pe_image.h"

namespace kvdiag {

struct UnwindRegisters {
    uint64_t gpr[16];  // in unwind-code order: rax rcx rdx rbx rsp rbp rsi rdi r8..r15
    uint64_t rip;
};

// Moves `regs` to the caller of the frame they describe. `image` is the module
// that holds regs.rip, loaded at `imageBase`; a function without an entry in
// its table is a leaf whose return address is at rsp. False when the unwind
// data or the stack memory needed is missing.
bool UnwindFrame(const PeImage& image, uint64_t imageBase, const DumpMemory& memory, UnwindRegisters& regs);
// The caller of a leaf frame: the return address at rsp.
bool UnwindLeaf(const DumpMemory& memory, UnwindRegisters& regs);

}  // namespace kvdiag
