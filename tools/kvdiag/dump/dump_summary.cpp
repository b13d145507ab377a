#include "dump/dump_summary.h"

#include "dump/dump_damage.h"
#include "dump/dump_stack.h"

namespace kvdiag {
namespace {

using ull = unsigned long long;

// Why a stream gives nothing: there is none (or an empty list), or it
// cannot be read.
const char* Absent(const DumpView& dump, uint32_t type, bool list) {
    const bool unreadable = dump.Lists(type) && (!list || dump.StreamBytes(type).size() < sizeof(ULONG32) ||
                                                 dump.ClaimedCount(type) > 0);
    return unreadable ? "unreadable (see Damage)" : "none recorded";
}

void PrintException(const DumpView& dump, FILE* out) {
    const auto* e = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
    if (!e) {
        fprintf(out, "Exception:      %s\n", Absent(dump, ExceptionStream, false));
        return;
    }
    const auto& r = e->ExceptionRecord;
    fprintf(out, "Exception:      code 0x%08lx at 0x%016llx\n", static_cast<unsigned long>(r.ExceptionCode),
            static_cast<ull>(r.ExceptionAddress));
    if (r.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && r.NumberParameters >= 2)
        fprintf(out, "                %s of address 0x%016llx\n",
                r.ExceptionInformation[0] == 0 ? "read" : r.ExceptionInformation[0] == 1 ? "write" : "execution",
                static_cast<ull>(r.ExceptionInformation[1]));
    fprintf(out, "Faulting thread: %lu\n", static_cast<unsigned long>(e->ThreadId));
}

void PrintModules(const DumpView& dump, FILE* out) {
    const auto modules = dump.List<MINIDUMP_MODULE>(ModuleListStream);
    if (!modules.count) {
        fprintf(out, "Modules:        %s\n", Absent(dump, ModuleListStream, true));
        return;
    }
    fprintf(out, "Modules:        %llu\n", static_cast<ull>(modules.count));
    for (const MINIDUMP_MODULE& m : modules) {
        const VS_FIXEDFILEINFO& v = m.VersionInfo;
        fprintf(out, "  0x%016llx %10lu  %u.%u.%u.%u  %s\n", static_cast<ull>(m.BaseOfImage),
                static_cast<unsigned long>(m.SizeOfImage), HIWORD(v.dwFileVersionMS), LOWORD(v.dwFileVersionMS),
                HIWORD(v.dwFileVersionLS), LOWORD(v.dwFileVersionLS), dump.Text(m.ModuleNameRva).c_str());
    }
}

void PrintMemory(const DumpView& dump, bool truncated, FILE* out) {
    const FullMemoryList full = dump.FullMemory();
    if (full.ranges.count) {
        ull bytes = 0;
        for (const auto& r : full.ranges) bytes += r.DataSize;
        fprintf(out, "Memory:         full memory%s, %llu ranges, %llu bytes\n",
                truncated ? " (cut short: see Damage)" : "", static_cast<ull>(full.ranges.count), bytes);
        return;
    }
    const auto list = dump.List<MINIDUMP_MEMORY_DESCRIPTOR>(MemoryListStream);
    if (!list.count) {
        fprintf(out, "Memory:         %s\n",
                Absent(dump, dump.Lists(Memory64ListStream) ? Memory64ListStream : MemoryListStream, true));
        return;
    }
    ull bytes = 0;
    for (const auto& r : list) bytes += r.Memory.DataSize;
    fprintf(out, "Memory:         %llu ranges, %llu bytes\n", static_cast<ull>(list.count), bytes);
    for (const auto& r : list)
        fprintf(out, "  0x%016llx %10lu\n", static_cast<ull>(r.StartOfMemoryRange),
                static_cast<unsigned long>(r.Memory.DataSize));
}

}  // namespace

int PrintDumpSummary(const DumpView& dump, const std::string& path, const std::vector<std::string>& symbolFolders,
                     bool nameFrames, bool allThreads, FILE* out) {
    fprintf(out, "Dump:           %s\n", path.c_str());
    fprintf(out, "Size:           %llu bytes\n", static_cast<ull>(dump.size()));
    if (!dump.header()) {
        fprintf(out, "Not a minidump%s\n", dump.size() == 0 ? " (empty file)" : "");
        return 1;
    }
    const DumpDamage damage = FindDumpDamage(dump);
    fprintf(out, "Dump type:      0x%llx\n", static_cast<ull>(dump.header()->Flags));
    if (damage.truncated)
        fprintf(out, "Truncated:      the dump's records reach byte %llu, the file ends at %llu (cut short, or an "
                "RVA or size in it is damaged)\n",
                static_cast<ull>(damage.neededSize), static_cast<ull>(dump.size()));
    PrintException(dump, out);
    PrintFaultingStack(dump, path, symbolFolders, nameFrames, out);
    if (allThreads || !dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream))
        PrintThreadStacks(dump, path, symbolFolders, nameFrames, out);
    PrintModules(dump, out);
    PrintMemory(dump, damage.truncated, out);
    if (damage.findings.empty()) return 0;
    fprintf(out, "Damage:         %zu finding%s; what is shown above is what could still be read\n",
            damage.findings.size(), damage.findings.size() == 1 ? "" : "s");
    // A directory of garbage makes a finding per entry: the first ones tell.
    constexpr size_t kShown = 20;
    for (size_t i = 0; i < damage.findings.size() && i < kShown; ++i)
        fprintf(out, "  %s\n", damage.findings[i].c_str());
    if (damage.findings.size() > kShown) fprintf(out, "  ... and %zu more\n", damage.findings.size() - kShown);
    return 1;
}

}  // namespace kvdiag
