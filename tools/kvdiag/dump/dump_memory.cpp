#include "dump/dump_memory.h"

#include <string.h>

#include <algorithm>

namespace kvdiag {

DumpMemory::DumpMemory(const DumpView& dump) : dump_(dump) {
    const FullMemoryList full = dump.FullMemory();
    if (full.ranges.count) {
        // The ranges' bytes follow each other from BaseRva on; a range that
        // starts past the end of the file ends the list.
        uint64_t offset = full.baseRva;
        for (const auto& r : full.ranges) {
            if (offset >= dump.size()) break;
            ranges_.push_back({r.StartOfMemoryRange, r.DataSize, offset});
            offset += r.DataSize < dump.size() ? r.DataSize : dump.size();
        }
    } else {
        for (const auto& r : dump.List<MINIDUMP_MEMORY_DESCRIPTOR>(MemoryListStream))
            ranges_.push_back({r.StartOfMemoryRange, r.Memory.DataSize, r.Memory.Rva});
    }
    std::sort(ranges_.begin(), ranges_.end(), [](const Range& a, const Range& b) { return a.start < b.start; });
}

bool DumpMemory::Read(uint64_t address, void* out, uint64_t size) const {
    auto next = std::upper_bound(ranges_.begin(), ranges_.end(), address,
                                 [](uint64_t a, const Range& r) { return a < r.start; });
    if (next == ranges_.begin()) return false;
    const Range& r = *(next - 1);
    if (address - r.start > r.size || size > r.size - (address - r.start)) return false;
    const uint64_t offset = r.fileOffset + (address - r.start);
    if (!dump_.file().Holds(offset, size)) return false;
    memcpy(out, dump_.file().base() + offset, size);
    return true;
}

}  // namespace kvdiag
