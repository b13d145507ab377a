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

// Attach already does what these two do; a host need not call them.
KVDH_C_API void InitializeCallStackSystem(void);
KVDH_C_API void ExitCallStackSystem(void);
// Non-zero while call-stack logging or the location lookup is on.
KVDH_C_API int IsInstrumentationEnabled(void);
// Switches instrumentation on or off; the first call that asks for anything
// starts the symbol handler (slow: it loads the symbols of every module).
// callStacks: LogInstrumentedAndKvcodeCallStacks and KvException constructors
// write symbolic stacks from now on. allocationMode: 0 none; 2 source
// locations of light-mode allocations; 6 the same and plain allocations
// listed in the report; other non-zero values timestamps without location
// lookup (4 set: plain listing). skipList: ";"-separated path fragments whose
// frames are passed over ("" or null: the default list; the text is split in
// place, so it must be writable). reportAtUnload: the memory report is
// written to the debug log when the library unloads.
KVDH_C_API void EnableCallStackAndAllocationInstrumentation(int callStacks, int allocationMode,
                                                            char* skipList, int reportAtUnload);
// "file:line:count": log the stack of the first count allocations made there.
// Takes effect only while the location lookup is on (allocation mode 2 or 6).
KVDH_C_API int SetAllocationWatcher(const char* spec);
KVDH_C_API void RegisterKvcodeStackDump(KvcodeStackDumpFn callback);
// The line of the first frame (after skip) that has line information, lies
// in none of the system's own DLLs and whose file is outside the skip list;
// its file in *outFile (the pool form: the last 31 characters, the first
// replaced by "*"). 0 and "" when none, and always while the location lookup
// is off (allocation mode 2 or 6 not set). A host frame has line information
// only when the host was compiled with -gcodeview (the package's imported
// target adds it) and its PDB lies beside it.
KVDH_C_API uint32_t GetActualAllocationLocation(uint32_t skip, const char* file, uint32_t line,
                                                const char** outFile);
// Writes the symbolic stack of frames (null: the current stack) to the debug
// log, and the Kvcode stack when the script engine is on it. Writes NOTHING
// unless call-stack logging is on, that is after
// EnableCallStackAndAllocationInstrumentation(1, ...) started the symbol
// handler; to get a stack as text whatever the switches, use
// DbgHlpFormatCallStack.
KVDH_C_API void LogInstrumentedAndKvcodeCallStacks(void** frames, uint32_t count);
// Raw capture of the caller's stack: frames captured, 0 when the capture
// function is missing. No symbols are involved.
KVDH_C_API uint16_t GetStackFrames(void** frames, uint32_t count, uint32_t skip);
// The symbolic stack of frames into text (size bytes), one line a frame as
// the debug log shows it ("(module) function(0xaddress) - file Line n +
// Offset 0x..", or without the source part, or "(0x...) Unable to determine
// address info"), whether or not call-stack logging is on; a null frame ends
// the list. Starts the symbol handler on first use. Returns the length
// written; -1 when text is null, size is 0 or the lines do not all fit (the
// whole lines that fit are written); -2 when frames is null with a count, or
// the symbol handler cannot start.
KVDH_C_API int DbgHlpFormatCallStack(void* const* frames, uint32_t count, char* text, uint32_t size);

#ifdef __cplusplus
}
#endif
