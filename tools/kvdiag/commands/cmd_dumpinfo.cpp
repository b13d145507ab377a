// kvdiag dumpinfo: what a minidump holds, read back through DbgHelp, with the
// faulting thread's call stack; every thread's stack for a dump without an
// exception (a hang) or with --threads.
#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "command.h"
#include "dump/dump_reader.h"
#include "dump/dump_stack.h"
#include "common/progress.h"

namespace {

using kvdiag::MappedDump;

void PrintException(const MappedDump& dump) {
    const auto* e = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
    if (!e) {
        printf("Exception:      none recorded\n");
        return;
    }
    const auto& r = e->ExceptionRecord;
    printf("Exception:      code 0x%08lx at 0x%016llx\n", static_cast<unsigned long>(r.ExceptionCode),
           static_cast<unsigned long long>(r.ExceptionAddress));
    if (r.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && r.NumberParameters >= 2)
        printf("                %s of address 0x%016llx\n",
               r.ExceptionInformation[0] == 0 ? "read" : r.ExceptionInformation[0] == 1 ? "write" : "execution",
               static_cast<unsigned long long>(r.ExceptionInformation[1]));
    printf("Faulting thread: %lu\n", static_cast<unsigned long>(e->ThreadId));
}

void PrintModules(const MappedDump& dump) {
    const auto* modules = dump.Stream<MINIDUMP_MODULE_LIST>(ModuleListStream);
    if (!modules) {
        printf("Modules:        none recorded\n");
        return;
    }
    printf("Modules:        %lu\n", static_cast<unsigned long>(modules->NumberOfModules));
    for (ULONG32 i = 0; i < modules->NumberOfModules; ++i) {
        const MINIDUMP_MODULE& m = modules->Modules[i];
        const VS_FIXEDFILEINFO& v = m.VersionInfo;
        printf("  0x%016llx %10lu  %u.%u.%u.%u  %s\n", static_cast<unsigned long long>(m.BaseOfImage),
               static_cast<unsigned long>(m.SizeOfImage), HIWORD(v.dwFileVersionMS), LOWORD(v.dwFileVersionMS),
               HIWORD(v.dwFileVersionLS), LOWORD(v.dwFileVersionLS), dump.Text(m.ModuleNameRva).c_str());
    }
}

void PrintMemory(const MappedDump& dump) {
    if (const auto* full = dump.Stream<MINIDUMP_MEMORY64_LIST>(Memory64ListStream)) {
        unsigned long long bytes = 0;
        for (ULONG64 i = 0; i < full->NumberOfMemoryRanges; ++i) bytes += full->MemoryRanges[i].DataSize;
        printf("Memory:         full memory, %llu ranges, %llu bytes\n",
               static_cast<unsigned long long>(full->NumberOfMemoryRanges), bytes);
        return;
    }
    const auto* list = dump.Stream<MINIDUMP_MEMORY_LIST>(MemoryListStream);
    if (!list) {
        printf("Memory:         none recorded\n");
        return;
    }
    unsigned long long bytes = 0;
    for (ULONG32 i = 0; i < list->NumberOfMemoryRanges; ++i) bytes += list->MemoryRanges[i].Memory.DataSize;
    printf("Memory:         %lu ranges, %llu bytes\n", static_cast<unsigned long>(list->NumberOfMemoryRanges), bytes);
    for (ULONG32 i = 0; i < list->NumberOfMemoryRanges; ++i) {
        const auto& range = list->MemoryRanges[i];
        printf("  0x%016llx %10lu\n", static_cast<unsigned long long>(range.StartOfMemoryRange),
               static_cast<unsigned long>(range.Memory.DataSize));
    }
}

}  // namespace

KVDIAG_COMMAND(dumpinfo, "dumpinfo FILE [--threads] [--symbols DIR]...",
               "what a minidump holds: exception, faulting stack (every thread's), modules, memory") {
    const char* path = nullptr;
    std::vector<std::string> symbolFolders;
    bool wrongUse = false, allThreads = false;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--symbols") == 0 && i + 1 < argc) symbolFolders.push_back(argv[++i]);
        else if (strcmp(argv[i], "--threads") == 0) allThreads = true;
        else if (!path && argv[i][0] != '-') path = argv[i];
        else wrongUse = true;
    }
    if (!path || wrongUse) {
        fprintf(stderr, "usage: kvdiag dumpinfo FILE [--threads] [--symbols DIR]...\n");
        return 2;
    }
    kvdiag::Progress progress("dumpinfo");
    progress.Stage("mapping the dump");
    MappedDump dump(path);
    if (!dump.opened()) {
        fprintf(stderr, "cannot open %s (error %lu)\n", path, GetLastError());
        return 1;
    }
    printf("Dump:           %s\n", path);
    printf("Size:           %llu bytes\n", static_cast<unsigned long long>(dump.size()));
    const auto* header = reinterpret_cast<const MINIDUMP_HEADER*>(dump.base());
    if (!header || dump.size() < sizeof *header || header->Signature != 0x504d444du /* "MDMP" */) {
        printf("Not a minidump%s\n", dump.size() == 0 ? " (empty file)" : "");
        return 1;
    }
    printf("Dump type:      0x%llx\n", static_cast<unsigned long long>(header->Flags));
    progress.Stage("reading the exception");
    PrintException(dump);
    progress.Stage("symbolizing the faulting stack");
    kvdiag::PrintFaultingStack(dump, path, symbolFolders);
    if (allThreads || !dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream)) {
        progress.Stage("symbolizing every thread's stack");
        kvdiag::PrintThreadStacks(dump, path, symbolFolders);
    }
    progress.Stage("reading the modules");
    PrintModules(dump);
    progress.Stage("reading the memory list");
    PrintMemory(dump);
    return 0;
}
