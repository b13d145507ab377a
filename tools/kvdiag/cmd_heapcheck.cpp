// kvdiag heapcheck: shows the guarded allocator catching a one-byte overrun,
// and the report it leaves in the debug log of the product installation.
#include <stdio.h>
#include <string.h>

#include <string>

#include "KvConfig.h"
#include "KvDebugHelp.h"
#include "command.h"

namespace {

void PrintLine(const char* line, ...) { printf("    %s", line); }

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
    char line[1024];
    while (fgets(line, sizeof line, f)) printf("    %s", line);
    fclose(f);
}

}  // namespace

KVDIAG_COMMAND(heapcheck, "heapcheck", "overrun a guarded block and show what the heap check reports") {
    (void)argc;
    (void)argv;
    std::string log;
    char folder[260];
    if (ValidateKorvanIniFile() == 1 && GetKorvanLogFolder(folder, sizeof folder) > 0)
        log = std::string(folder) + "\\debug.log";
    const long logStart = log.empty() ? 0 : FileSize(log);

    DbgHlpSetDebugMode(DBGHLP_MODE_CHECK_ALL_ALWAYS);
    char* block = static_cast<char*>(osMemAlloc(24, OSMEM_ZERO));
    if (!block) return 2;
    printf("Guarded block of 24 bytes at %p; writing 25 bytes into it.\n", static_cast<void*>(block));
    memcpy(block, "Pump 7 flow rate: 42 l/s!", 25);
    DbgMemElement* element = dbgMemFirstHdr();
    while (element && dbgMemNextHdr(element)) element = dbgMemNextHdr(element);
    printf("The element as the heap check sees it (the trail buffer should be all FD):\n");
    dbgMemDumpMemory(element, PrintLine);
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
    return 0;
}
