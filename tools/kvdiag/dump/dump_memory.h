// The process memory a minidump kept (the full-memory list of a heavy dump or
// the range list of a light one), read by address.
#pragma once

#include <stdint.h>

#include <vector>

#include "dump/dump_reader.h"

namespace kvdiag {

class DumpMemory {
public:
    explicit DumpMemory(const DumpView& dump);

    bool empty() const { return ranges_.empty(); }
    // Copies `size` bytes at `address`; false unless the dump holds all of them.
    bool Read(uint64_t address, void* out, uint64_t size) const;
    bool Read64(uint64_t address, uint64_t& value) const { return Read(address, &value, sizeof value); }

private:
    struct Range {
        uint64_t start, size, fileOffset;
    };
    const DumpView& dump_;
    std::vector<Range> ranges_;  // sorted by start
};

}  // namespace kvdiag
