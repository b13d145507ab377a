// Copies of up to 128 bytes inline. A checked copy of 64 bytes spent most of
// its time in the call to the runtime's memcpy (an import, which under Wine
// takes 20 ns and more for 64 bytes); small copies are done here with
// unaligned loads that cover the range from both ends, and only larger ones
// call the runtime, where the call's cost no longer shows.
#pragma once

#include <emmintrin.h>
#include <stdint.h>
#include <string.h>

namespace kv {

#pragma GCC visibility push(hidden)

namespace detail {

inline __m128i Load16(const unsigned char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void Store16(unsigned char* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// Covers [0, 32) and [n - 32, n) for n in [32, 64] in four vector registers
// (the volatile ones of the Windows x64 convention), all loaded before any is
// stored, so overlapping ranges move correctly.
__attribute__((always_inline)) inline void Move32To64(unsigned char* d, const unsigned char* s, size_t n) {
    const __m128i a = Load16(s), b = Load16(s + 16), c = Load16(s + n - 32), e = Load16(s + n - 16);
    Store16(d, a);
    Store16(d + 16, b);
    Store16(d + n - 32, c);
    Store16(d + n - 16, e);
}

// The same for W-byte words and n in [W, 2W].
template <typename Word>
__attribute__((always_inline)) inline void MoveBothEnds(unsigned char* d, const unsigned char* s, size_t n) {
    Word head, tail;
    __builtin_memcpy(&head, s, sizeof head);
    __builtin_memcpy(&tail, s + n - sizeof tail, sizeof tail);
    __builtin_memcpy(d, &head, sizeof head);
    __builtin_memcpy(d + n - sizeof tail, &tail, sizeof tail);
}

// For ranges that do not overlap, n in [64, 128]: the first 64 bytes, then
// the last 64.
__attribute__((always_inline)) inline void Copy64To128(unsigned char* d, const unsigned char* s, size_t n) {
    Move32To64(d, s, 64);
    Move32To64(d + n - 64, s + n - 64, 64);
}

}  // namespace detail

// memmove(dst, src, n) when overlapping, else memcpy: never touches a byte
// outside [dst, dst + n).
template <bool overlapping>
__attribute__((always_inline)) inline void CopyBytes(void* dst, const void* src, uint32_t n) {
    auto* d = static_cast<unsigned char*>(dst);
    const auto* s = static_cast<const unsigned char*>(src);
    if (n > 64) {
        if (overlapping) memmove(d, s, n);
        else if (n > 128) memcpy(d, s, n);
        else detail::Copy64To128(d, s, n);
    } else if (n >= 32) {
        detail::Move32To64(d, s, n);
    } else if (n >= 16) {
        detail::MoveBothEnds<__m128i>(d, s, n);
    } else if (n >= 8) {
        detail::MoveBothEnds<uint64_t>(d, s, n);
    } else if (n >= 4) {
        detail::MoveBothEnds<uint32_t>(d, s, n);
    } else if (n > 0) {
        const unsigned char first = s[0], middle = s[n / 2], last = s[n - 1];
        d[0] = first;
        d[n / 2] = middle;
        d[n - 1] = last;
    }
}

#pragma GCC visibility pop

}  // namespace kv
