// Child-host scenarios of the allocator: settings, crashes and a stress.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <thread>
#include <vector>

#include "KvDebugHelp.h"
#include "scenario.h"

static void PrintStats(const char* when) {
    DbgMemStatistics s{};
    dbgMemStats(&s);
    printf("%s elements=%u bytes=%u total=%u guarded=%u\n", when, s.elementCount, s.bytesInUse, s.totalBytesInUse,
           s.pageGuardedCount);
}

// Guarded mode: freeing a stack buffer is reported, or traps with "CrashOnError".
KV_INI_SCENARIO(mem_free_stack_buffer) {
    DbgHlpSetDebugMode(1);
    char local[256];
    memset(local, 'L', sizeof local);
    osMemFree(local + 128);
    printf("survived\n");
    return 0;
}

// Debug mode 16 with a window covering every address: the element ends at a
// no-access page, so the first byte past it faults at the write itself.
KV_INI_SCENARIO(mem_page_guard) {
    DbgHlpSetDebugMode(0x10);
    DbgHlpSetPageGuardWindow(0, ~0ull, 16);
    volatile char* p = static_cast<char*>(osMemAlloc(10, OSMEM_ZERO));
    p[9] = 'x';
    char* q = static_cast<char*>(osMemAlloc(3000, 0));  // released again from its own placement
    osMemFree(q);
    PrintStats("freed");
    if (argc > 1 && !strcmp(argv[1], "overrun")) p[10] = 'x';
    printf("survived\n");
    return 0;
}

// The page pool ("AllocFromPage"): blocks filled, freed and reused.
KV_INI_SCENARIO(mem_page_pool) {
    std::vector<char*> blocks;
    for (int i = 0; i < 3000; ++i) {
        char* p = static_cast<char*>(osMemAlloc(uint32_t(i % 200), OSMEM_ZERO));
        if (!p) return 2;
        memset(p, i & 0x7F, size_t(i % 200));
        blocks.push_back(p);
    }
    char* big = static_cast<char*>(osMemAlloc(200000, 0));  // larger than one block unit
    memset(big, 1, 200000);
    for (int i = 0; i < 3000; ++i)
        for (int j = 0; j < i % 200; ++j)
            if (blocks[i][j] != char(i & 0x7F)) return 3;
    for (char* p : blocks) osMemFree(p);
    osMemFree(big);
    char* again = static_cast<char*>(osMemReAlloc(nullptr, 64, OSMEM_ZERO));
    printf("again %d\n", again && again[63] == 0);
    memset(again, 'g', 64);
    char* grown = static_cast<char*>(osMemReAlloc(again, 65530, OSMEM_ZERO));  // fills a block to its end
    if (!grown || DbgMemAllocLen(grown) != 65530 || grown[0] != 'g' || grown[63] != 'g' || grown[64] != 0 ||
        grown[65529] != 0)
        return 4;
    osMemFree(grown);
    return 0;
}

// Four threads in guarded mode allocate blocks of random sizes and free them
// at random later, often on another thread than the one that allocated them.
// Arguments: the product INI file (reports reach its log), the debug mode.
KV_INI_SCENARIO(mem_guarded_stress) {
    DbgHlpSetDebugMode(argc > 1 ? uint16_t(atoi(argv[1])) : 1);
    constexpr int kThreads = 4, kRounds = 20000, kSlots = 256;
    std::vector<std::atomic<char*>> shared(kSlots);  // value-initialised: all null
    std::vector<std::thread> threads;
    std::atomic<int> bad{0};
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            unsigned seed = 12345u + unsigned(t);
            for (int i = 0; i < kRounds; ++i) {
                seed = seed * 1103515245u + 12345u;
                const int slot = int((seed >> 8) % kSlots);
                const uint32_t size = (seed >> 16) % 600;
                char* p = static_cast<char*>(osMemAlloc(size, 0));
                if (!p || DbgMemAllocLen(p) != size) {
                    ++bad;
                    continue;
                }
                memset(p, 'a' + t, size);
                if (char* old = shared[slot].exchange(p)) osMemFree(old);
            }
        });
    }
    for (auto& t : threads) t.join();
    for (auto& s : shared)
        if (char* p = s.exchange(nullptr)) osMemFree(p);
    dbgMemCheckAllMemory(1);
    PrintStats("end");
    printf("bad=%d\n", bad.load());
    return bad.load();
}
