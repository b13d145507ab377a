#include "dump/dump_summary.h"

#include "dump/dump_damage.h"
#include "dump/dump_analysis.h"
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

void PrintStack(const ThreadStack& stack, const char* indent, FILE* out) {
    for (size_t i = 0; i < stack.frames.size(); ++i)
        fprintf(out, "%s#%-2zu %s\n", indent, i, stack.frames[i].Text().c_str());
    if (!stack.stop.empty()) fprintf(out, "%s(%s)\n", indent, stack.stop.c_str());
}

// Windows keeps the modules a light dump's stacks point into; Wine keeps
// none, so there is nothing to unwind or name frames with.
const char kNoModules[] = "not walked: the dump lists no modules, so no frame can be unwound or named";

void PrintFaulting(const DumpView& dump, const DumpStacks& stacks, const DumpAnalysis& a, FILE* out) {
    CONTEXT context;
    DWORD threadId = 0;
    if (!ExceptionContext(dump, context, threadId)) {
        fprintf(out, "Stack:          none: the dump records no exception context\n");
    } else if (stacks.modules().empty()) {
        fprintf(out, "Stack:          thread %lu, %s\n  #0  0x%016llx\n", static_cast<unsigned long>(threadId),
                kNoModules, static_cast<ull>(context.Rip));
    } else {
        fprintf(out, "Stack:          thread %lu, innermost frame first\n", static_cast<unsigned long>(threadId));
        PrintStack(a.faulting, "  ", out);
    }
}

void PrintThreads(const DumpStacks& stacks, const DumpAnalysis& a, FILE* out) {
    fprintf(out, "Threads:        %zu\n", a.threads.size());
    if (a.threads.empty()) return;
    if (stacks.modules().empty()) {
        fprintf(out, "  stacks %s\n", kNoModules);
        return;
    }
    for (const ThreadStack& t : a.threads) {
        fprintf(out, "Thread %lu, innermost frame first\n", static_cast<unsigned long>(t.threadId));
        PrintStack(t, "  ", out);
    }
}

std::string LockText(const DumpStacks& stacks, uint64_t lock) {
    char text[32];
    snprintf(text, sizeof text, "0x%016llx", static_cast<ull>(lock));
    const std::string name = stacks.DataName(lock);
    return name.empty() ? text : std::string(text) + " (" + name + ")";
}

void PrintLocks(const DumpStacks& stacks, const DumpAnalysis& a, FILE* out) {
    if (a.locks.waits.empty()) return;
    fprintf(out, "Locks:          %zu thread%s in EnterCriticalSection\n", a.locks.waits.size(),
            a.locks.waits.size() == 1 ? "" : "s");
    for (const LockWait& w : a.locks.waits) {
        if (w.lock)
            fprintf(out, "  thread %lu waits for lock %s owned by thread %lu\n", static_cast<unsigned long>(w.waiter),
                    LockText(stacks, w.lock).c_str(), static_cast<unsigned long>(w.owner));
        else
            fprintf(out, "  thread %lu waits for a lock not found in the dump's memory (a full-memory dump holds it)\n",
                    static_cast<unsigned long>(w.waiter));
    }
    for (const auto& cycle : a.locks.deadlocks) {
        std::string line = "Deadlock: ";
        for (size_t i = 0; i < cycle.size(); ++i) {
            char part[160];
            snprintf(part, sizeof part, "%sthread %lu waits for lock 0x%016llx owned by thread %lu", i ? "; " : "",
                     static_cast<unsigned long>(cycle[i].waiter), static_cast<ull>(cycle[i].lock),
                     static_cast<unsigned long>(cycle[i].owner));
            line += part;
        }
        fprintf(out, "%s\n", line.c_str());
        for (const LockWait& w : cycle)
            for (const ThreadStack& t : a.threads)
                if (t.threadId == w.waiter) {
                    fprintf(out, "  Thread %lu\n", static_cast<unsigned long>(t.threadId));
                    PrintStack(t, "    ", out);
                }
    }
}

std::string Joined(const std::vector<std::string>& items) {
    std::string text;
    for (const auto& item : items) text += (text.empty() ? "" : "; ") + item;
    return text;
}

// Which files were found for each module, and for those missing what and where kvdiag looked.
void PrintModuleFiles(const DumpStacks& stacks, const SummaryOptions& options, FILE* out) {
    if (stacks.modules().empty() || !options.walk.findFiles) return;
    fprintf(out, "Symbols:        files found by the identities the dump records\n");
    std::string systemWithoutImage;
    for (const DumpModule& m : stacks.modules()) {
        if (m.operatingSystem) {
            if (!m.image) systemWithoutImage += (systemWithoutImage.empty() ? "" : ", ") + m.name;
            continue;
        }
        if (m.image && m.image->fromDump())
            fprintf(out, "  %s: image rebuilt from the dump's memory; no file of it in: %s\n", m.name.c_str(),
                    Joined(m.imageLooked).c_str());
        else if (m.image) fprintf(out, "  %s: image %s\n", m.name.c_str(), m.image->path().c_str());
        else
            fprintf(out, "  %s: image missing (time stamp 0x%08lX, size 0x%llX); looked in: %s\n", m.name.c_str(),
                    static_cast<unsigned long>(m.timeDateStamp), static_cast<ull>(m.size),
                    Joined(m.imageLooked).c_str());
        if (!options.walk.nameFrames) {
        } else if (!m.hasPdbRecord) {
            fprintf(out, "  %s: names no PDB%s\n", m.name.c_str(),
                    m.image ? "" : " in the dump (its image would tell)");
        } else if (!m.pdbPath.empty()) {
            fprintf(out, "  %s: PDB %s\n", m.name.c_str(), m.pdbPath.c_str());
        } else {
            fprintf(out, "  %s: PDB missing (%s %s); looked in: %s\n", m.name.c_str(), m.pdb.name.c_str(),
                    DescribePdb(m.pdb).c_str(), m.pdbLooked.empty() ? "nowhere" : Joined(m.pdbLooked).c_str());
        }
        for (const auto& refusal : m.refused) fprintf(out, "  %s: refused %s\n", m.name.c_str(), refusal.c_str());
    }
    if (!systemWithoutImage.empty())
        fprintf(out, "  system modules without their image (frames in them show as module+offset): %s\n",
                systemWithoutImage.c_str());
    for (const auto& ignored : options.walk.symbols.ignored)
        fprintf(out, "  not searched: %s (kvdiag reads folders and stores on disk only)\n", ignored.c_str());
}

// Frames of the product's own modules left unnamed for want of their PDB
// (code a PDB has no name for, such as the runtime's start-up, does not count).
size_t UnnamedProductFrames(const DumpAnalysis& a) {
    size_t unnamed = 0;
    auto count = [&unnamed](const ThreadStack& s) {
        for (const StackFrame& f : s.frames)
            if (f.module && !f.module->operatingSystem && !f.module->symbolsLoaded) ++unnamed;
    };
    count(a.faulting);
    for (const auto& t : a.threads) count(t);
    return unnamed;
}

}  // namespace

int PrintDumpSummary(const DumpView& dump, const std::string& path, const SummaryOptions& options, FILE* out) {
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
    const DumpStacks stacks(dump, path, options.walk);
    const DumpAnalysis analysis = AnalyzeDump(dump, stacks, options.allThreads);
    PrintException(dump, out);
    PrintFaulting(dump, stacks, analysis, out);
    fprintf(out, "Signature:      %s\n", analysis.signature.c_str());
    if (!analysis.threads.empty() || !analysis.hasException) PrintThreads(stacks, analysis, out);
    PrintLocks(stacks, analysis, out);
    PrintModules(dump, out);
    PrintModuleFiles(stacks, options, out);
    PrintMemory(dump, damage.truncated, out);
    const size_t unnamed = options.walk.nameFrames ? UnnamedProductFrames(analysis) : 0;
    if (unnamed)
        fprintf(out, "Unnamed:        %zu frame%s of the product's modules without their PDB: see Symbols for "
                "what is missing\n", unnamed, unnamed == 1 ? "" : "s");
    if (damage.findings.empty()) return unnamed ? 1 : 0;
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
