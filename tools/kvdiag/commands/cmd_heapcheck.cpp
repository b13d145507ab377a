// kvdiag heapcheck: shows the guarded allocator catching a one-byte overrun,
// then (in a child process, since the checks run when the library unloads) a
// leaked guarded block and an instrumented memory report, and the reports
// they leave in the debug log of a scratch copy of the installation.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "KvCallStack.h"
#include "KvConfig.h"
#include "KvDebugHelp.h"
#include "command.h"
#include "commands/ini_status.h"
#include "commands/scratch_install.h"
#include "common/console_text.h"
#include "platform/module_path.h"
#include "platform/owned_handle.h"

namespace {

// The writer dbgMemDumpMemory hands each formatted line of the block to (with its line end).
void PrintIndentedDumpLine(const char* line, ...) { printf("    %s", line); }

long FileSize(const std::string& path) {
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return 0;
    fseek(f, 0, SEEK_END);
    const long size = ftell(f);
    fclose(f);
    return size;
}

void PrintLogFrom(const std::string& path, long offset) {
    FILE* f = fopen(path.c_str(), "rb");
    if (!f) return;
    fseek(f, offset, SEEK_SET);
    char piece[1024];
    std::string line;  // a line longer than the buffer comes in pieces
    while (fgets(piece, sizeof piece, f)) {
        line += piece;
        if (line.back() != '\n') continue;
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
        kvdiag::PrintLine(line, "    ");
        line.clear();
    }
    if (!line.empty()) kvdiag::PrintLine(line, "    ");
    fclose(f);
}

// The child: leaves light-mode blocks from three sites (one overrun past its
// end marker) and one guarded block, then ends; at unload the library checks
// for leaks (debug mode 2) and writes the memory report.
int LeakAndExit(const char* ini) {
    if (!kvdiag::ValidateProductIni(ini).valid) return 1;
    DbgHlpSetCmdLine(GetCommandLineA());  // the memory report names the process by it
    EnableCallStackAndAllocationInstrumentation(0, 1, const_cast<char*>(""), 1);
    for (int i = 0; i < 3; ++i) osMemAllocDbg(64, OSMEM_ZERO, "pump_table.cpp", 120);
    osMemAllocDbg(200, OSMEM_ZERO, "recipe_cache.cpp", 77);
    char* name = static_cast<char*>(osMemAllocDbg(12, OSMEM_ZERO, "tag_names.cpp", 48));
    if (name) memcpy(name, "FLOW-METER-7", 13);  // one byte too many: the end marker is hit
    DbgHlpSetDebugMode(DBGHLP_MODE_LEAK_CHECK_AT_UNLOAD);
    char* leaked = static_cast<char*>(osMemAlloc(40, OSMEM_ZERO));
    if (leaked) strcpy(leaked, "never freed");
    return 0;
}

bool RunLeakChild(const std::string& ini) {
    const std::string self = kv::platform::ModulePath(nullptr);
    if (self.empty()) return false;
    std::string commandLine = "\"" + self + "\" heapcheck --leak --ini \"" + ini + "\"";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return false;
    const kv::platform::KernelHandle child(process.hProcess), thread(process.hThread);
    WaitForSingleObject(child.get(), 60000);
    DWORD code = 1;
    GetExitCodeProcess(child.get(), &code);
    return code == 0;
}

}  // namespace

KVDIAG_COMMAND(heapcheck, "",
               "overrun a guarded block, leak blocks in a child, and show what the heap checks report "
               "(in a scratch copy of the installation)",
               kvdiag::kIniOption) {
    const char* ini = kvdiag::TakeIniOption(argc, argv);
    if (argc == 1 && !strcmp(argv[0], "--leak")) return LeakAndExit(ini);
    if (argc != 0) return kvdiag::UsageError();
    // The reports go to a scratch installation's log, never the plant's.
    const kvdiag::IniStatus status = kvdiag::ValidateProductIni(ini);
    const std::string scratchIni = status.valid ? kvdiag::UseScratchInstall(status.path, "heapcheck") : "";
    std::string log;
    char path[260];
    if (!scratchIni.empty() && GetDebugLogFilePath(-1, 1, path, sizeof path) > 0) log = path;
    const long logStart = log.empty() ? 0 : FileSize(log);

    DbgHlpSetDebugMode(DBGHLP_MODE_CHECK_ALL_ALWAYS);
    char* block = static_cast<char*>(osMemAlloc(24, OSMEM_ZERO));
    if (!block) return 1;
    printf("Guarded block of 24 bytes at %p; writing 25 bytes into it.\n", static_cast<void*>(block));
    memcpy(block, "Pump 7 flow rate: 42 l/s!", 25);
    DbgMemElement* element = dbgMemFirstHdr();
    while (element && dbgMemNextHdr(element)) element = dbgMemNextHdr(element);
    printf("The element as the heap check sees it (the trail buffer should be all FD):\n");
    dbgMemDumpMemory(element, PrintIndentedDumpLine);
    DbgMemStatistics stats{};
    dbgMemStats(&stats);
    printf("Live guarded elements: %u, %u bytes (%u with headers and guards)\n", stats.elementCount,
           stats.bytesInUse, stats.totalBytesInUse);
    osMemFree(block);
    if (log.empty()) {
        printf("Freeing it reported the overwrite to the debug log (no product INI file: not written).\n");
        return 0;
    }
    printf("Freeing it reported the overwrite in %s:\n", log.c_str());
    PrintLogFrom(log, logStart);

    const long childStart = FileSize(log);
    printf("\nA child process leaves a guarded block (debug mode 2) and five instrumented light-mode\n"
           "blocks, one of them overrun, and ends. What the library wrote at unload:\n");
    if (!RunLeakChild(scratchIni)) {
        printf("The child failed.\n");
        return 1;
    }
    PrintLogFrom(log, childStart);
    return 0;
}
