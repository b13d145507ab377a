// A call stack as named text in the caller's buffer, on request: the same
// lines the debug log gets, without call-stack logging being switched on.
#include <string.h>

#include "KvCrash.h"
#include "crash/callstack_state.h"
#include "crash/callstack_symbols.h"
#include "frame/process_state.h"

extern "C" int DbgHlpFormatCallStack(void* const* frames, uint32_t count, char* text, uint32_t size) {
    using namespace kv;
    if (!text || size == 0) return -1;
    text[0] = 0;
    if (!frames && count) return -2;
    EnterCriticalSection(&CallStackLock);
    // Starting the symbol handler here leaves call-stack logging as the host set it.
    if (!InitializeSymbols(false)) {
        LeaveCriticalSection(&CallStackLock);
        return -2;
    }
    int result = 0;
    size_t used = 0;
    for (uint32_t i = 0; i < count && frames[i]; ++i) {
        char line[1200];
        FormatFrame(frames[i], line, sizeof line);
        const size_t length = strlen(line);
        if (used + length >= size) {  // whole lines only: what fits stays, ended
            result = -1;
            break;
        }
        memcpy(text + used, line, length + 1);
        used += length;
    }
    LeaveCriticalSection(&CallStackLock);
    return result < 0 ? result : int(used);
}

extern "C" int KvExceptionGetStackText(const KvException* exception, char* text, uint32_t size) {
    if (!exception) {
        if (text && size) text[0] = 0;
        return -2;
    }
    // Captured entries come first; the rest of the array is zero (a copy keeps
    // the first 20 and reports a count of 0, so the entries are counted here).
    const uint64_t* stack = exception->getCallStackArray();
    uint32_t count = 0;
    while (count < uint32_t(KvException::kCallStackSize) && stack[count]) ++count;
    void* frames[KvException::kCallStackSize];
    for (uint32_t i = 0; i < count; ++i) frames[i] = reinterpret_cast<void*>(stack[i]);
    return DbgHlpFormatCallStack(frames, count, text, size);
}
