// kvdiag heapcheck: shows the guarded allocator catching a one-byte overrun.
#include <stdio.h>
#include <string.h>

#include "KvDebugHelp.h"
#include "command.h"

namespace {

void PrintLine(const char* line, ...) { printf("    %s", line); }

}  // namespace

KVDIAG_COMMAND(heapcheck, "heapcheck", "overrun a guarded block and show what the heap check reports") {
    (void)argc;
    (void)argv;
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
    printf("Freeing it runs the full check, which writes \"Memory error - overwrite memory\" to the debug log.\n");
    osMemFree(block);
    return 0;
}
