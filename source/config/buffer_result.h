// The result rule of every export that fills a caller's buffer: clear it over
// its whole size, then copy the text only when it fits with its terminator.
#pragma once

#include <stdint.h>
#include <string.h>

namespace kv {

constexpr int32_t kBufferTooSmall = -1;
constexpr int32_t kNotAvailable = -2;
constexpr int32_t kNotValidated = -3;

inline void ClearBuffer(char* buffer, uint32_t size) {
    if (buffer && size) memset(buffer, 0, size);
}

// Copies length bytes and a terminator: the length, or -1 when the buffer
// (null counts as size 0) has fewer than length + 1 bytes. Does not clear.
inline int32_t CopyOut(const char* text, size_t length, char* buffer, uint32_t size) {
    if (!buffer || size_t(size) < length + 1) return kBufferTooSmall;
    memcpy(buffer, text, length);
    buffer[length] = '\0';
    return int32_t(length);
}

}  // namespace kv
