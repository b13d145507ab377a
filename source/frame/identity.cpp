// Identity strings, debug mode and the run-time setters of the frame.
#include <string.h>

#include "KvFrame.h"
#include "KvLogging.h"
#include "KvMemory.h"
#include "frame/process_state.h"

using namespace kv;

extern "C" {

void DbgHlpSetIdStr(const char* id) {
    if (!id) return;
    const int16_t length = int16_t(strlen(id));  // a 16-bit count, as the bounded copy takes it
    if (length >= 0 && length < int16_t(sizeof IdString)) {
        // The count may have wrapped (a text of 65536 + length characters):
        // the terminator is written, not copied.
        memcpy(IdString, id, size_t(length));
        IdString[length] = '\0';
        return;
    }
    if (length < 0) {
        IdString[0] = '\0';
    } else {
        memcpy(IdString, id, sizeof IdString - 1);
        IdString[sizeof IdString - 1] = '\0';
    }
    DbgLogWrite("StrLengthCopy: invalid parameters or copy truncated pDest=%p pSource=%p length=%d\n",
                static_cast<void*>(IdString), static_cast<const void*>(id), int(sizeof IdString));
    DbgHlpDumpStack();
}

int DbgHlpSetCmdLine(const char* text) {
    return strcat_s(CommandLine, sizeof CommandLine - 1, text);
}

uint32_t DbgHlpSetDebugMode(uint16_t mode) {
    DebugMode = mode;
    return mode;
}

void DbgHlpGetInfo(DbgHlpInfo* info) {
    if (!info) return;
    info->debugMode = uint16_t(DebugMode);
    info->heapCheckRate = uint16_t(Settings.heapCheckRate);
}

void DbgHlpSetDebugLogInis(int32_t sizeKb, int16_t historyFiles) {
    if (sizeKb > 0) Settings.debugLogSize = uint32_t(sizeKb > 10240 ? 10240 : sizeKb) * 1024;
    if (historyFiles >= 0) Settings.debugLogHistoryFiles = historyFiles > 10 ? 10 : historyFiles;
}

void DbgHlpSetMemSafeCopyTrunc(uint8_t truncate) { Settings.truncateMemSafeCopy = truncate != 0; }

uint16_t DbgHlpGetCountOfDebugLogHistoryFiles(void) { return uint16_t(Settings.debugLogHistoryFiles); }

}  // extern "C"
