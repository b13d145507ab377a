#include "dump/dump_damage.h"

#include <stdarg.h>
#include <stdio.h>

namespace kvdiag {
namespace {

struct StreamInfo {
    uint32_t type;
    const char* name;
    uint32_t entrySize;  // list streams: a 32-bit count, then entries of this size; 0 for others
};

const StreamInfo kStreams[] = {
    {ThreadListStream, "thread list", sizeof(MINIDUMP_THREAD)},
    {ModuleListStream, "module list", sizeof(MINIDUMP_MODULE)},
    {MemoryListStream, "memory list", sizeof(MINIDUMP_MEMORY_DESCRIPTOR)},
    {ExceptionStream, "exception", 0},
    {SystemInfoStream, "system info", 0},
    {Memory64ListStream, "full-memory list", 0},
    {HandleDataStream, "handle data", 0},
    {UnloadedModuleListStream, "unloaded module list", 0},
    {MiscInfoStream, "misc info", 0},
    {MemoryInfoListStream, "memory info list", 0},
    {ThreadInfoListStream, "thread info list", 0},
};

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...) {
    char text[300];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

using ull = unsigned long long;

class Checker {
public:
    explicit Checker(const DumpView& dump) : dump_(dump) {}

    // Notes that the dump's records reach `offset + length`; false when the
    // file does not hold them.
    bool Reach(uint64_t offset, uint64_t length) {
        const uint64_t end = length > UINT64_MAX - offset ? UINT64_MAX : offset + length;
        if (end > damage_.neededSize) damage_.neededSize = end;
        return end <= dump_.size();
    }
    void Find(std::string finding) { damage_.findings.push_back(std::move(finding)); }

    void Directory() {
        const MINIDUMP_HEADER& h = *dump_.header();
        if (!Reach(h.StreamDirectoryRva, uint64_t(h.NumberOfStreams) * sizeof(MINIDUMP_DIRECTORY)))
            Find(Format("stream directory: %lu entries at RVA 0x%lx, the file holds %llu of them",
                        static_cast<unsigned long>(h.NumberOfStreams), static_cast<unsigned long>(h.StreamDirectoryRva),
                        static_cast<ull>(dump_.directory().count)));
        for (const auto& entry : dump_.directory())
            if (entry.Location.DataSize && !Reach(entry.Location.Rva, entry.Location.DataSize))
                Find(Format("%s stream: %lu bytes at RVA 0x%lx run past the end of the file",
                            StreamName(entry.StreamType).c_str(), static_cast<unsigned long>(entry.Location.DataSize),
                            static_cast<unsigned long>(entry.Location.Rva)));
    }

    void Lists() {
        for (const auto& s : kStreams) {
            if (!s.entrySize || dump_.StreamBytes(s.type).size() == 0) continue;
            const uint64_t claimed = dump_.ClaimedCount(s.type);
            const uint64_t held = dump_.StreamBytes(s.type).Fits(sizeof(ULONG32), s.entrySize);
            if (claimed > held)
                Find(Format("%s: %llu entries claimed, the stream holds %llu", s.name, static_cast<ull>(claimed),
                            static_cast<ull>(held)));
        }
    }

    void Modules() {
        uint64_t badNames = 0;
        for (const auto& m : dump_.List<MINIDUMP_MODULE>(ModuleListStream))
            if (dump_.Text(m.ModuleNameRva) == "?") ++badNames;
        if (badNames) Find(Format("module list: %llu module names lie outside the file", static_cast<ull>(badNames)));
    }

    void Exception() {
        if (dump_.StreamBytes(ExceptionStream).size() == 0) return;
        const auto* e = dump_.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
        if (!e) {
            Find("exception stream: shorter than an exception record");
        } else if (!Reach(e->ThreadContext.Rva, e->ThreadContext.DataSize)) {
            Find(Format("exception stream: the thread context (%lu bytes at RVA 0x%lx) lies outside the file",
                        static_cast<unsigned long>(e->ThreadContext.DataSize),
                        static_cast<unsigned long>(e->ThreadContext.Rva)));
        }
    }

    void Memory() {
        uint64_t outside = 0, total = 0;
        for (const auto& r : dump_.List<MINIDUMP_MEMORY_DESCRIPTOR>(MemoryListStream)) {
            ++total;
            if (!Reach(r.Memory.Rva, r.Memory.DataSize)) ++outside;
        }
        if (outside)
            Find(Format("memory list: %llu of %llu ranges lie (partly) outside the file", static_cast<ull>(outside),
                        static_cast<ull>(total)));
        const FullMemoryList full = dump_.FullMemory();
        if (full.claimed > full.ranges.count)
            Find(Format("full-memory list: %llu ranges claimed, the stream holds %llu", static_cast<ull>(full.claimed),
                        static_cast<ull>(full.ranges.count)));
        uint64_t offset = full.baseRva, missing = 0, bytes = 0;
        for (const auto& r : full.ranges) {
            const uint64_t inFile = offset < dump_.size() ? dump_.size() - offset : 0;
            if (r.DataSize > inFile) missing += r.DataSize - inFile;
            bytes += r.DataSize;
            Reach(offset, r.DataSize);
            offset = r.DataSize > UINT64_MAX - offset ? UINT64_MAX : offset + r.DataSize;
        }
        if (missing)
            Find(Format("full-memory list: %llu of %llu bytes of memory lie past the end of the file",
                        static_cast<ull>(missing), static_cast<ull>(bytes)));
    }

    // A writer that was stopped leaves the streams it had not reached out;
    // the full memory the header's type asks for is the one that shows.
    void Completeness() {
        if ((dump_.header()->Flags & MiniDumpWithFullMemory) && !dump_.StreamBytes(Memory64ListStream).size())
            Find("incomplete: the dump type asks for full memory, but there is no full-memory list "
                 "(was writing the dump stopped?)");
    }

    DumpDamage Result() {
        damage_.truncated = damage_.neededSize > dump_.size();
        return std::move(damage_);
    }

private:
    const DumpView& dump_;
    DumpDamage damage_;
};

}  // namespace

std::string StreamName(uint32_t type) {
    for (const auto& s : kStreams)
        if (s.type == type) return s.name;
    return "type " + std::to_string(type);
}

DumpDamage FindDumpDamage(const DumpView& dump) {
    Checker checker(dump);
    if (!dump.header()) return checker.Result();
    checker.Directory();
    checker.Lists();
    checker.Modules();
    checker.Exception();
    checker.Memory();
    checker.Completeness();
    return checker.Result();
}

}  // namespace kvdiag
