// KvCallStack.h - call-stack capture, symbolic stacks and allocation
// instrumentation.
#pragma once

#include <stdint.h>
#include "KvExport.h"

#ifdef __cplusplus
extern "C" {
#endif

// Called by the script engine with a text buffer and its size; fills it with
// the script-level call stack.
typedef void (*KvcodeStackDumpFn)(char* buffer, int size);

KVDH_C_API void InitializeCallStackSystem(void);
KVDH_C_API void ExitCallStackSystem(void);
KVDH_C_API int IsInstrumentationEnabled(void);
// allocationMode: 0 none; 2 source locations of light-mode allocations; 6 the
// same and plain allocations listed in the report; other non-zero values
// timestamps without location lookup (4 set: plain listing). skipList:
// ";"-separated path fragments whose frames are passed over ("" default).
KVDH_C_API void EnableCallStackAndAllocationInstrumentation(int callStacks, int allocationMode,
                                                            char* skipList, int reportAtUnload);
// "file:line:count": log the stack of the first count allocations made there.
KVDH_C_API int SetAllocationWatcher(const char* spec);
KVDH_C_API void RegisterKvcodeStackDump(KvcodeStackDumpFn callback);
// The line of the first frame (after skip) outside the skip list, its file in
// *outFile; 0 and "" when none.
KVDH_C_API uint32_t GetActualAllocationLocation(uint32_t skip, const char* file, uint32_t line,
                                                const char** outFile);
// Writes the symbolic stack of frames (null: the current stack) to the debug log.
KVDH_C_API void LogInstrumentedAndKvcodeCallStacks(void** frames, uint32_t count);
KVDH_C_API uint16_t GetStackFrames(void** frames, uint32_t count, uint32_t skip);

#ifdef __cplusplus
}
#endif
