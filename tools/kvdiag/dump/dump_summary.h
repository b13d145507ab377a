// What a minidump holds, as dumpinfo prints it: header, exception, faulting
// stack and crash signature, every thread's stack and the locks they wait
// for, modules with the files found for them, memory, then what is damaged.
// Reads only through the bounded view, so it runs safely on any file.
#pragma once

#include <stdio.h>

#include <string>

#include "dump/dump_reader.h"
#include "dump/dump_stack.h"

namespace kvdiag {

struct SummaryOptions {
    WalkOptions walk;
    bool allThreads = false;  // every thread's stack even with an exception
};

// Writes the summary to `out`; returns the exit code: 0 for a sound dump
// read in full, 1 for one that is damaged, truncated or no minidump at all,
// or when a frame of a product module stays unnamed while naming frames.
int PrintDumpSummary(const DumpView& dump, const std::string& path, const SummaryOptions& options, FILE* out);

}  // namespace kvdiag
