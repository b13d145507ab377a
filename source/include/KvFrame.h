// KvFrame.h - the library frame: per-process identity, debug mode, settings
// report, the drivers' critical section and the deliberate-crash functions.
#pragma once

#include <stdint.h>
#include "KvExport.h"

// Filled by DbgHlpGetInfo, in this order.
typedef struct DbgHlpInfo {
    uint16_t debugMode;      // low 16 bits of the debug mode
    uint16_t heapCheckRate;  // low 16 bits of the "HeapCheckRate" setting
} DbgHlpInfo;

// Debug-mode bits; any non-zero mode selects the guarded allocator.
enum DbgHlpDebugModeBits {
    DBGHLP_MODE_LEAK_CHECK_AT_UNLOAD = 0x02,
    DBGHLP_MODE_CHECK_ALL_ALWAYS = 0x04,
    DBGHLP_MODE_KEEP_FREED = 0x08,
    DBGHLP_MODE_PAGE_GUARD = 0x10,
    DBGHLP_MODE_PERIODIC_CHECK = 0x20
};

// Returns its argument unchanged: a fixed place for a debugger breakpoint.
KVDH_C_API uint32_t DbgReturnValue(uint32_t value);
// Raises an unhandled integer divide-by-zero (0xC0000094) on purpose.
KVDH_C_API uint32_t DbgPleaseCrash(void);
// Performs the same division under a guard that accepts the exception and returns.
KVDH_C_API void DbgCrashButCatch(void);
// Executes a breakpoint trap when "CrashOnError" is set; otherwise nothing.
KVDH_C_API void DbgHlpDisplayError(void);

// Identity printed by every memory error report. Texts of 100 characters or
// more are cut to 99 and reported in the debug log.
KVDH_C_API void DbgHlpSetIdStr(const char* id);
// Appends to the process's command-line text (8191 characters at most);
// returns the strcat_s result.
KVDH_C_API int DbgHlpSetCmdLine(const char* text);
KVDH_C_API uint32_t DbgHlpSetDebugMode(uint16_t mode);
KVDH_C_API void DbgHlpGetInfo(DbgHlpInfo* info);
// Size in kilobytes (1..10240; 0 or less leaves it), history count (0..10;
// negative leaves it).
KVDH_C_API void DbgHlpSetDebugLogInis(int32_t sizeKb, int16_t historyFiles);
KVDH_C_API void DbgHlpSetMemSafeCopyTrunc(uint8_t truncate);
KVDH_C_API uint16_t DbgHlpGetCountOfDebugLogHistoryFiles(void);

// A process-wide critical section for host drivers. Both show a message box
// ("Korvan Driver Error") and do nothing when the library is not attached.
KVDH_C_API int EnterCritical(void);
KVDH_C_API void ExitCritical(void);

// One per-executable setting as the library resolves it at attach.
typedef struct DbgHlpSettingInfo {
    char name[32];          // registry value name, e.g. "DebugLogSize"
    int64_t value;          // effective value after defaults and clamps
    int32_t fromRegistry;   // 1 when the value was present in the registry
    uint32_t rawValue;      // the registry's DWORD when present
} DbgHlpSettingInfo;

// Resolves the settings that a process with the given executable base name
// would get at attach (exeName null: this process's own, as read at attach).
// Fills at most capacity rows and returns the number of settings, or -1 for a
// null row pointer with a non-zero capacity.
KVDH_C_API int DbgHlpDescribeSettings(const char* exeName, DbgHlpSettingInfo* rows, int capacity);
// The range a setting's registry value is clamped to at attach (DebugLogSize
// in KB): 1 with *low and *high set (either may be null), 0 for a switch or an
// unclamped value, -1 for a null or unknown name.
KVDH_C_API int DbgHlpGetSettingRange(const char* name, int32_t* low, int32_t* high);
