// Helpers shared by the CDirFunctions members: bounded path building, the
// malloc hand-back of result strings and the catch-all around every body.
#pragma once

#include <windows.h>
#include <string.h>

namespace kv {

// Copies src into a MAX_PATH buffer; false (dst untouched) when it does not fit.
inline bool CopyPath(char (&dst)[MAX_PATH], const char* src) {
    if (!src) return false;
    const size_t len = strlen(src);
    if (len >= MAX_PATH) return false;
    memcpy(dst, src, len + 1);
    return true;
}

// Appends src to the text in dst; false (dst untouched) when it does not fit.
inline bool AppendPath(char (&dst)[MAX_PATH], const char* src) {
    const size_t have = strnlen(dst, MAX_PATH);
    const size_t add = strlen(src);
    if (have + add >= MAX_PATH) return false;
    memcpy(dst + have, src, add + 1);
    return true;
}

inline bool EndsInBackslash(const char* text) {
    const size_t len = strlen(text);
    return len && text[len - 1] == '\\';
}

// Replaces the caller's string by a malloc copy of text: 1, or 0 when memory
// runs out (out is then null).
int HandBack(const char* text, char*& out);

// Runs body and turns any exception into the failure result.
template <class Body>
int Guarded(Body body, int failure = 0) noexcept {
    try {
        return body();
    } catch (...) {
        return failure;
    }
}

}  // namespace kv
