// Checked copy, move, fill and string-copy functions: each knows the room in
// its destination and reports an overrun instead of writing past it.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "KvLogging.h"
#include "memory/short_copy.h"
#include "memory/winmem_internal.h"
#include "memory/winmem_report.h"
#include "memory/winmem_state.h"

namespace kv {
namespace {

constexpr UINT kInvalidCrtParameter = 0xC0000417;

const char* Annotation(const void* p, uint32_t count) { return !p || count == 0 ? "BAD" : ""; }

// Each module linked with the static runtime keeps its own handler, and
// msvcrt.dll under Wine has none to share, so refused copies go through a
// handler of the library's own: the host's when it set one, else the
// runtime's default (the process ends).
DbgHlpInvalidParameterHandler InvalidParameterHandler = nullptr;

void RaiseInvalidParameter() {
    errno = ERANGE;
    if (DbgHlpInvalidParameterHandler handler = InvalidParameterHandler) {
        handler(nullptr, nullptr, nullptr, 0, 0);
        return;
    }
    TerminateProcess(GetCurrentProcess(), kInvalidCrtParameter);
}

// strcpy_s with the refusal routed through the handler above.
bool BoundedStringCopy(char* dst, uint32_t room, const char* src) {
    const size_t length = strlen(src);
    if (length < room) {
        memcpy(dst, src, length + 1);
        return true;
    }
    if (room > 0) dst[0] = 0;
    RaiseInvalidParameter();
    return false;
}

// The room of an allocator pointer: 0 and reported when it is none.
bool CheckedRoom(const void* dst, uint32_t& room) {
    room = 0;
    const PointerCheck check = ClassifyPointer(dst);
    if (check != PointerCheck::Valid) {
        ReportBadPointer(check, dst);
        if (check != PointerCheck::NullElement) DumpMemoryAtPointer(dst);
        DumpCallerStack();
        return false;
    }
    room = DbgMemAllocLen(const_cast<void*>(dst));
    return true;
}

// The room of a live allocator block without any report: the Valid answer of
// ClassifyPointer and the length of DbgMemAllocLen in a few loads, for the
// fast path of the checked variants. Anything else takes the slow path, which
// classifies the pointer again and reports it.
__attribute__((always_inline)) inline bool LiveRoom(const void* dst, uint32_t& room) {
    if (GuardedMode()) {
        const DbgMemElement* e = ElementOf(dst);
        if (reinterpret_cast<uintptr_t>(e) == 0 || e->magic != kElementMagic) return false;
        room = e->size;
        return true;
    }
    const char* p = static_cast<const char*>(dst);
    if (reinterpret_cast<uintptr_t>(p) == kShortHeaderBytes || ReadU32(p - 4) != kShortMagic) return false;
    const uint32_t size = ReadU32(p - 8);
    const uint32_t trailer = ReadU32(p + size);
    room = size;
    return trailer == kPlainTrailer || trailer == kInstrumentedTrailer;
}

__attribute__((always_inline)) inline bool Fits(const void* dst, const void* src, uint32_t count, uint32_t room) {
    return dst && src && count != 0 && count <= room;
}

// Fits the room of dst, which must be a live allocator block.
__attribute__((always_inline)) inline bool FitsBlock(void* dst, const void* src, uint32_t count) {
    uint32_t room = 0;
    return dst && LiveRoom(dst, room) && Fits(dst, src, count, room);
}

void Copy(const char* line, void* dst, const void* src, uint32_t count, uint32_t room, bool checked) {
    if (!src || !dst || count == 0) {
        room = 0;
    } else if (checked && !CheckedRoom(dst, room)) {
        // nothing copied
    } else if (count <= room) {
        memcpy(dst, src, count);
        return;
    } else {
        const uint32_t amount = Settings.truncateMemSafeCopy ? room : count;
        if (amount > room) {
            memset(dst, 0, room);
            RaiseInvalidParameter();
        } else if (amount != 0) {
            memcpy(dst, src, amount);
        }
    }
    if (!Settings.logMemSafeCopy) return;
    DbgLogWrite(line, dst, Annotation(dst, count), src, Annotation(src, count), long(count), long(room));
    DumpCallerStack();
}

// Applies a move or fill of count bytes to dst within its room: whole when it
// fits, else cut to the room when truncating or done whole as asked. True
// when it fitted; false, with nothing done, for a missing pointer, a zero
// count (room then 0) or a checked target that is no block of the heap.
template <class Apply>
bool ApplyWithinRoom(void* dst, bool sourceGiven, uint32_t count, uint32_t& room, bool checked, Apply apply) {
    if (!sourceGiven || !dst || count == 0) {
        room = 0;
        return false;
    }
    if (checked && !CheckedRoom(dst, room)) return false;
    const bool fits = count <= room;
    apply(fits || !Settings.truncateMemSafeCopy ? count : room);
    return fits;
}

void Move(const char* line, void* dst, const void* src, uint32_t count, uint32_t room, bool checked) {
    if (ApplyWithinRoom(dst, src != nullptr, count, room, checked, [&](uint32_t n) { memmove(dst, src, n); })) return;
    if (!Settings.logMemSafeCopy) return;
    DbgLogWrite(line, dst, Annotation(dst, count), src, Annotation(src, count), long(count), long(room));
    DumpCallerStack();
}

void Set(const char* line, void* dst, uint8_t value, uint32_t count, uint32_t room, bool checked) {
    if (ApplyWithinRoom(dst, true, count, room, checked, [&](uint32_t n) { memset(dst, value, n); })) return;
    if (!Settings.logMemSafeCopy) return;
    DbgLogWrite(line, dst, Annotation(dst, count), long(count), long(room));
    DumpCallerStack();
}

char* StringCopy(const char* line, char* invalidText, char* dst, const char* src, bool checked) {
    if (dst && src) {
        uint32_t room = 0;
        const bool usable = checked ? CheckedRoom(dst, room) : (room = DbgMemAllocLen(dst), true);
        if (usable && BoundedStringCopy(dst, room, src)) return dst;
    }
    DbgLogWrite(line, src, Annotation(src, 1), dst, Annotation(dst, 1));
    DumpCallerStack();
    if (!dst) return invalidText;
    dst[0] = 0;
    return dst;
}

// The exported functions' refusals, cuts and reports, out of line with the
// exported arguments only: each fast path then needs no stack frame.
__attribute__((noinline)) void MemSafeCopySlow(void* dst, const void* src, uint32_t count, uint32_t limit) {
    Copy("MemSafeCopy error:dst=0x%p %s,src=0x%p %s,count=%ld,limit=%ld\n", dst, src, count, limit, false);
}
__attribute__((noinline)) void KvMemSafeCopySlow(void* dst, const void* src, uint32_t count) {
    Copy("KVMemSafeCopy error:dst=0x%p %s,,src=0x%p %s,count=%ld,limit=%ld\n", dst, src, count, 0, true);
}
__attribute__((noinline)) void MemSafeMoveSlow(void* dst, const void* src, uint32_t count, uint32_t limit) {
    Move("MemSafeMove error:dst=0x%p %s,src=0x%p %s,count=%ld,limit=%ld\n", dst, src, count, limit, false);
}
__attribute__((noinline)) void KvMemSafeMoveSlow(void* dst, const void* src, uint32_t count) {
    Move("KVMemSafeMove error:dst=0x%p %s,src=0x%p %s,count=%ld,limit=%ld\n", dst, src, count, 0, true);
}

char StrSafeCopyInvalid[] = "StrSafeCopy: invalid destination pointer";
char KvStrSafeCopyInvalid[] = "KvStrSafeCopy: invalid destination pointer";

}  // namespace
}  // namespace kv

extern "C" {

DbgHlpInvalidParameterHandler DbgHlpSetInvalidParameterHandler(DbgHlpInvalidParameterHandler handler) {
    const DbgHlpInvalidParameterHandler previous = kv::InvalidParameterHandler;
    kv::InvalidParameterHandler = handler;
    return previous;
}

void MemSafeCopy(void* dst, const void* src, uint32_t count, uint32_t limit) {
    if (kv::Fits(dst, src, count, limit)) return kv::CopyBytes<false>(dst, src, count);
    kv::MemSafeCopySlow(dst, src, count, limit);
}

void KvMemSafeCopy(void* dst, const void* src, uint32_t count) {
    if (kv::FitsBlock(dst, src, count)) return kv::CopyBytes<false>(dst, src, count);
    kv::KvMemSafeCopySlow(dst, src, count);
}

void MemSafeMove(void* dst, const void* src, uint32_t count, uint32_t limit) {
    if (kv::Fits(dst, src, count, limit)) return kv::CopyBytes<true>(dst, src, count);
    kv::MemSafeMoveSlow(dst, src, count, limit);
}

void KvMemSafeMove(void* dst, const void* src, uint32_t count) {
    if (kv::FitsBlock(dst, src, count)) return kv::CopyBytes<true>(dst, src, count);
    kv::KvMemSafeMoveSlow(dst, src, count);
}

void MemSafeSet(void* dst, uint8_t value, uint32_t count, uint32_t limit) {
    kv::Set("MemSafeSet error:dst=0x%p %s,count=%ld,limit=%ld\n", dst, value, count, limit, false);
}

void KvMemSafeSet(void* dst, uint8_t value, uint32_t count) {
    kv::Set("KVMemSafeSet error:dst=0x%p %s,count=%ld,limit=%ld\n", dst, value, count, 0, true);
}

char* StrSafeCopy(char* dst, const char* src) {
    return kv::StringCopy("StrSafeCopy: invalid parameter pSrc=%p %s pDst=%p %s", kv::StrSafeCopyInvalid, dst, src,
                          false);
}

char* KvStrSafeCopy(char* dst, const char* src) {
    return kv::StringCopy("KvStrSafeCopy: invalid parameter pSrc=%p %s pDst=%p %s", kv::KvStrSafeCopyInvalid, dst,
                          src, true);
}

uint16_t StrLengthCopy(char* dst, const char* src, int16_t length) {
    if (!dst) return 0;
    if (!src) {
        dst[0] = 0;
        return 0;
    }
    const int16_t srcLength = int16_t(strlen(src));
    const int16_t n = length < srcLength ? length : srcLength;
    if (n >= 1) memcpy(dst, src, size_t(n));
    dst[n >= 1 ? n : 0] = 0;
    return uint16_t(n);
}

uint16_t DbgHlpStrLengthCopy(char* dst, const char* src, int16_t length) {
    static const char kLine[] = "StrLengthCopy: invalid parameters or copy truncated pDest=%p pSource=%p length=%d\n";
    if (!dst || !src) {
        if (dst) dst[0] = 0;
        DbgLogWrite(kLine, dst, src, 0);
        kv::DumpCallerStack();
        return 0;
    }
    const int16_t srcLength = int16_t(strlen(src));
    if (srcLength >= 0 && srcLength < length) {
        memcpy(dst, src, size_t(srcLength) + 1);
        return uint16_t(srcLength);
    }
    const int n = length - 1;
    if (n < 0) {
        dst[0] = 0;
    } else {
        memcpy(dst, src, size_t(n));
        dst[n] = 0;
    }
    DbgLogWrite(kLine, dst, src, int(length));
    kv::DumpCallerStack();
    return uint16_t(n);
}

}  // extern "C"
