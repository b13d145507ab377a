// What is wrong with a dump's structure: one line per damaged part, stream
// by stream, and whether the file was cut short.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "dump/dump_reader.h"

namespace kvdiag {

struct DumpDamage {
    std::vector<std::string> findings;  // empty for a sound dump
    uint64_t neededSize = 0;            // how far the dump's own records reach
    bool truncated = false;             // the file ends before neededSize
};

// Only meaningful for a view with a header.
DumpDamage FindDumpDamage(const DumpView& dump);

// "module list" for ModuleListStream; "type N" for one kvdiag does not name.
std::string StreamName(uint32_t type);

}  // namespace kvdiag
