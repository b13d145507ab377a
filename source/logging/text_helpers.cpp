// Small text transformations of the log line builders.
#include "logging/debug_log.h"

#include <windows.h>

namespace kv {

size_t CollapsePercentPairs(char* text, size_t length) {
    size_t out = 0;
    for (size_t in = 0; in < length; ++in) {
        text[out++] = text[in];
        if (text[in] == '%' && in + 1 < length && text[in + 1] == '%') ++in;
    }
    if (out < length) text[out] = '\0';
    return out;
}

size_t ToCrLf(const char* in, size_t length, char* out) {
    size_t n = 0;
    for (size_t i = 0; i < length; ++i) {
        if (in[i] == '\n' && (i == 0 || in[i - 1] != '\r')) out[n++] = '\r';
        out[n++] = in[i];
    }
    return n;
}

void ToNarrow(const wchar_t* wide, size_t length, char* out, size_t size) {
    out[0] = '\0';
    if (size < 2) return;
    // Each wide character gives at least one byte: cut to what may fit, and
    // keep cutting while a multi-byte code page needs more room.
    int count = int(length < size - 1 ? length : size - 1);
    while (count > 0) {
        const int written = WideCharToMultiByte(CP_ACP, 0, wide, count, out, int(size - 1), nullptr, nullptr);
        if (written > 0) {
            out[written] = '\0';
            return;
        }
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return;
        count /= 2;
    }
}

}  // namespace kv
