// Child-host scenario of the hang watchdog.
#include "KvDebugHelp.h"
#include "scenario.h"

static volatile int sink;

// The hang dumps must name it; not a tail call, so its frame stays on the stack.
__attribute__((noinline)) static void BlockWithoutHeartbeat(DWORD ms) {
    Sleep(ms);
    sink = 1;
}

static void Beat(int times) {
    for (int i = 0; i < times; ++i, Sleep(100)) DbgHlpHeartbeat();
}

// INI_PATH: watched for 3 s, the main thread beats for 4 s, blocks for 10 s,
// beats for 2 s, blocks for 6 s, then stops its watch and ends with 0.
KV_INI_SCENARIO(hang_watched) {
    if (DbgHlpWatchForHang(3) != 0) return 4;  // no handler yet
    if (DbgHlpStartCrashHandler(nullptr) != 1 || DbgHlpWatchForHang(3) != 1) return 5;
    Beat(40);
    printf("blocking pid=%lu\n", GetCurrentProcessId());
    fflush(stdout);
    BlockWithoutHeartbeat(10000);
    Beat(20);
    BlockWithoutHeartbeat(6000);
    return DbgHlpWatchForHang(0) == 1 ? 0 : 6;
}
