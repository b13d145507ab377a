// A module's image rebuilt from the memory a dump kept of it (a full-memory
// dump holds every mapped image): headers and each section's bytes put back
// at their file offsets, so the image reads as the file it was loaded from.
// That gives the unwind data, and the CodeView record that names its PDB,
// where the image file itself is nowhere to be found.
#pragma once

#include <windows.h>
#include <stdint.h>

#include <vector>

#include "dump/dump_memory.h"

namespace kvdiag {

// Empty unless the dump holds the module's headers (a 64-bit image) and some
// of its sections; pages the dump lacks stay zero.
std::vector<BYTE> ImageFromMemory(const DumpMemory& memory, uint64_t base, uint64_t sizeOfImage);

}  // namespace kvdiag
