// A minidump read through bounded views only. Every RVA, size and count in
// the file is treated as hostile: the header, the stream directory and each
// stream are cut to what the file really holds, so a damaged or truncated dump
// yields less, never a read outside it. What is damaged is told by
// FindDumpDamage (dump/dump_damage.h).
#pragma once

#include <windows.h>
#include <dbghelp.h>
#include <stdint.h>

#include <string>

#include "common/byte_view.h"
#include "common/mapped_file.h"

namespace kvdiag {

// The full-memory list of a heavy dump: the ranges' bytes follow each other
// in the file from baseRva on.
struct FullMemoryList {
    Records<MINIDUMP_MEMORY_DESCRIPTOR64> ranges;
    uint64_t claimed = 0;  // the count the stream states
    uint64_t baseRva = 0;
};

class DumpView {
public:
    explicit DumpView(ByteView file);

    const ByteView& file() const { return file_; }
    uint64_t size() const { return file_.size(); }
    // The header, or null when the file does not start with one ("MDMP").
    const MINIDUMP_HEADER* header() const { return header_; }
    // The directory entries that lie inside the file.
    const Records<MINIDUMP_DIRECTORY>& directory() const { return directory_; }

    // Whether the directory lists a stream of `type` (readable or not).
    bool Lists(uint32_t type) const;
    // The first stream of `type`, cut to the bytes the file holds; empty when
    // there is none.
    ByteView StreamBytes(uint32_t type) const;
    // A fixed-size stream, or null when absent or cut short.
    template <typename T>
    const T* Stream(uint32_t type) const {
        return StreamBytes(type).At<T>(0);
    }
    // A list stream (a 32-bit count, then the entries): the entries that lie
    // wholly inside both the stream and the file.
    template <typename Entry>
    Records<Entry> List(uint32_t type) const {
        const ByteView stream = StreamBytes(type);
        const ULONG32* count = stream.At<ULONG32>(0);
        return count ? stream.Span<Entry>(sizeof(ULONG32), *count) : Records<Entry>{};
    }
    // The count a list stream states, whatever the file holds; 0 when absent.
    uint64_t ClaimedCount(uint32_t type) const;
    // The full-memory list; no ranges when there is none.
    FullMemoryList FullMemory() const;
    // A MINIDUMP_STRING at an RVA as narrow text; "?" when it does not lie
    // inside the file.
    std::string Text(RVA rva) const;

private:
    ByteView file_;
    const MINIDUMP_HEADER* header_ = nullptr;
    Records<MINIDUMP_DIRECTORY> directory_;
};

// A dump file mapped read-only and viewed as above.
class MappedDump : public MappedFile, public DumpView {
public:
    explicit MappedDump(const char* path)
        : MappedFile(path), DumpView(ByteView(MappedFile::base(), MappedFile::size())) {}
    using DumpView::size;
};

}  // namespace kvdiag
