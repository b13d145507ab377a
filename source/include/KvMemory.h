// KvMemory.h - the debug memory manager: allocation, heap checks and reports,
// checked copies.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>
#include "KvExport.h"

#ifdef __cplusplus
extern "C" {
#endif

// Allocation flags of osMemAlloc and friends.
enum OsMemAllocFlags {
    OSMEM_ZERO = 0x01,           // zero the usable bytes
    OSMEM_NO_LEAK_REPORT = 0x40  // never reported as a leak at unload
};

// The header in front of every guarded allocation (debug mode not 0). The
// fixed fields take 32 bytes; stackTraceSize 32-bit stack words, the lead
// guard, the caller's bytes and the trail guard follow.
typedef struct DbgMemElement {
    uint32_t magic;                 // 0xA5A5A5A5 live, 0xADADADAD head, 0xDADADADA tail
    struct DbgMemElement* prev;
    struct DbgMemElement* next;
    uint32_t size;                  // requested size + Padding
    uint32_t flags;                 // 0x01 freed, 0x02 page-guarded, 0x40 exempt from leak report
} DbgMemElement;

// Guarded-mode statistics, in the order dbgMemStats copies them.
typedef struct DbgMemStatistics {
    uint32_t bytesInUse;
    uint32_t totalBytesInUse;
    uint32_t peakBytes;
    uint32_t peakTotalBytes;
    uint32_t elementCount;
    uint32_t peakElementCount;
    uint32_t pageGuardedCount;
} DbgMemStatistics;

// Receives one line per call (DbgLogWrite is one). Every "%" of the line is
// doubled, so a writer may use it as a format.
typedef void (*DbgMemWriter)(const char* line, ...);

// ---- Allocation ----
// size is rejected (null, reported) when negative as a signed 32-bit value.
KVDH_C_API void* osMemAlloc(uint32_t size, uint16_t flags);
KVDH_C_API void* osMemAllocDbg(uint32_t size, uint16_t flags, const char* file, int line);
KVDH_C_API void osMemFree(void* pointer);
// Size 0 frees and returns null; a null pointer allocates.
KVDH_C_API void* osMemReAlloc(void* pointer, uint32_t size, uint16_t flags);
KVDH_C_API void* osMemReAllocDbg(void* pointer, uint32_t size, uint16_t flags, const char* file, int line);
// Non-zero for a live allocator pointer; anything else is reported.
KVDH_C_API int DbgIsValidPtr(void* pointer);
// Usable size (requested + Padding); 0 for null.
KVDH_C_API uint32_t DbgMemAllocLen(void* pointer);
// size bytes that end right at a no-access page; never released.
KVDH_C_API void* osMemAllocProtect(int size, uint16_t flags);
KVDH_C_API void osMemFreeProtect(void);
// Pagefile-backed shared block.
KVDH_C_API void* MemAllocShare(uint16_t size);
KVDH_C_API void MemFreeShare(void* pointer);
// Writes the current call stack (up to 40 frames) to the debug log.
KVDH_C_API void DbgHlpDumpStack(void);
// Captures the current stack into frames; 0 for a null buffer or no capture.
KVDH_C_API uint16_t DbgHlpGetStack(void** frames, uint32_t count);
// Debug mode 16: allocations whose stack (depth frames) passes through
// [low, high] get page-guarded elements. Set at run time because the window
// is 64-bit and the mode is never on at attach.
KVDH_C_API void DbgHlpSetPageGuardWindow(uint64_t low, uint64_t high, uint32_t depth);

// ---- Heap checks and reports ----
KVDH_C_API DbgMemElement* dbgMemFirstHdr(void);
KVDH_C_API DbgMemElement* dbgMemPrevHdr(DbgMemElement* element);
KVDH_C_API DbgMemElement* dbgMemNextHdr(DbgMemElement* element);
KVDH_C_API void dbgMemStats(DbgMemStatistics* stats);
// Checks every guarded element; with leakCheck also reports the unfreed ones.
KVDH_C_API void dbgMemCheckAllMemory(int leakCheck);
KVDH_C_API void dbgMemDumpStackTrace(DbgMemElement* element, int full, DbgMemWriter writer);
KVDH_C_API void dbgMemDumpMemory(DbgMemElement* element, DbgMemWriter writer);
// Header, rate line and a table of the light-mode allocations made between
// fromTime and toTime (seconds since 1970); rateOnly stops after the rate line.
KVDH_C_API void DbgMemHeapReport(uint32_t fromTime, uint32_t toTime, int rateOnly);
// Returns the light-mode allocation total; outstanding and rate per second out.
KVDH_C_API uint64_t ReturnMemoryBufferCounts(uint64_t* outstanding, uint32_t* rate);

// ---- Checked copies ----
// A refused copy zeroes the room, sets errno to ERANGE (34) and calls this
// handler (the runtime's signature); without one the process ends with
// 0xC0000417. Returns the previous handler.
typedef void (*DbgHlpInvalidParameterHandler)(const wchar_t* expression, const wchar_t* function,
                                              const wchar_t* file, unsigned int line, uintptr_t reserved);
KVDH_C_API DbgHlpInvalidParameterHandler DbgHlpSetInvalidParameterHandler(DbgHlpInvalidParameterHandler handler);
KVDH_C_API void MemSafeCopy(void* dst, const void* src, uint32_t count, uint32_t limit);
KVDH_C_API void KvMemSafeCopy(void* dst, const void* src, uint32_t count);
KVDH_C_API void MemSafeMove(void* dst, const void* src, uint32_t count, uint32_t limit);
KVDH_C_API void KvMemSafeMove(void* dst, const void* src, uint32_t count);
KVDH_C_API void MemSafeSet(void* dst, uint8_t value, uint32_t count, uint32_t limit);
KVDH_C_API void KvMemSafeSet(void* dst, uint8_t value, uint32_t count);
KVDH_C_API char* StrSafeCopy(char* dst, const char* src);
KVDH_C_API char* KvStrSafeCopy(char* dst, const char* src);
// dst must hold length + 1 bytes; silent.
KVDH_C_API uint16_t StrLengthCopy(char* dst, const char* src, int16_t length);
// length is dst's size including the terminator; a cut is reported.
KVDH_C_API uint16_t DbgHlpStrLengthCopy(char* dst, const char* src, int16_t length);

#ifdef __cplusplus
}
#endif
