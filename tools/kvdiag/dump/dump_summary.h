// What a minidump holds, as dumpinfo prints it: header, exception, faulting
// stack, modules and memory, then what is damaged. Reads only through the
// bounded view, so it runs safely on any file.
#pragma once

#include <stdio.h>

#include <string>
#include <vector>

#include "dump/dump_reader.h"

namespace kvdiag {

// Writes the summary to `out` (frames named through the PDBs with
// nameFrames; every thread's stack with allThreads or when the dump records
// no exception, as a dump of a hung process does); returns the exit code: 0 for a sound dump, 1 for one that is
// damaged, truncated or no minidump at all.
int PrintDumpSummary(const DumpView& dump, const std::string& path, const std::vector<std::string>& symbolFolders,
                     bool nameFrames, bool allThreads, FILE* out);

}  // namespace kvdiag
