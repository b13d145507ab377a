// The drivers' process-wide critical section.
#include <windows.h>

#include "KvFrame.h"
#include "frame/process_state.h"

using namespace kv;

extern "C" {

int EnterCritical(void) {
    if (AttachCount < 1) {
        MessageBoxA(nullptr, "Invalid EnterCritical", "Korvan Driver Error", MB_OK);
        return 0;
    }
    EnterCriticalSection(&DriverLock);
    return 0;
}

void ExitCritical(void) {
    if (AttachCount < 1) {
        MessageBoxA(nullptr, "Invalid ExitCritical", "Korvan Driver Error", MB_OK);
        return;
    }
    LeaveCriticalSection(&DriverLock);
}

}  // extern "C"
