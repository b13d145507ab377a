#include "dump/dump_memory.h"

#include <string.h>

#include <algorithm>

namespace kvdiag {

DumpMemory::DumpMemory(const MappedDump& dump) : dump_(dump) {
    if (const auto* full = dump.Stream<MINIDUMP_MEMORY64_LIST>(Memory64ListStream)) {
        // The ranges' bytes follow each other from BaseRva on.
        uint64_t offset = full->BaseRva;
        for (ULONG64 i = 0; i < full->NumberOfMemoryRanges; ++i) {
            const auto& r = full->MemoryRanges[i];
            ranges_.push_back({r.StartOfMemoryRange, r.DataSize, offset});
            offset += r.DataSize;
        }
    } else if (const auto* list = dump.Stream<MINIDUMP_MEMORY_LIST>(MemoryListStream)) {
        for (ULONG32 i = 0; i < list->NumberOfMemoryRanges; ++i) {
            const auto& r = list->MemoryRanges[i];
            ranges_.push_back({r.StartOfMemoryRange, r.Memory.DataSize, r.Memory.Rva});
        }
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
    if (offset > dump_.size() || size > dump_.size() - offset) return false;
    memcpy(out, dump_.base() + offset, size);
    return true;
}

}  // namespace kvdiag
