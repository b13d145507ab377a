// The call stack of a minidump's faulting thread, unwound from the exception
// context with the unwind data of the module images on disk and named through
// their PDBs: one frame a line, "module!function+0xoffset (file:line)".
#pragma once

#include <stdio.h>

#include <string>
#include <vector>

#include "dump/dump_reader.h"

namespace kvdiag {

// Images are looked for at the path the dump names, beside the dump, then in
// each of `symbolFolders`; PDBs beside the images, in those folders and on
// _NT_SYMBOL_PATH. Without nameFrames no PDB is read: module+offset only.
void PrintFaultingStack(const DumpView& dump, const std::string& dumpPath,
                        const std::vector<std::string>& symbolFolders, bool nameFrames, FILE* out);
// Every thread the dump lists, each walked from its recorded context the same way.
void PrintThreadStacks(const DumpView& dump, const std::string& dumpPath,
                       const std::vector<std::string>& symbolFolders, bool nameFrames, FILE* out);

}  // namespace kvdiag
