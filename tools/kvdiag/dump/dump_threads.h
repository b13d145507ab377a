// The threads a minidump lists, each with the register context it recorded.
#pragma once

#include <windows.h>

#include <vector>

#include "dump/dump_reader.h"

namespace kvdiag {

struct DumpThread {
    DWORD id = 0;
    bool haveContext = false;  // false when the context lies outside the file or is too short
    CONTEXT context{};
};

// Every entry of the thread list that lies inside the file; empty without one.
std::vector<DumpThread> ThreadsOf(const DumpView& dump);

}  // namespace kvdiag
