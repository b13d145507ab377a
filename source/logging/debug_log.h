// The debug log's internals shared by its writer, its roller and the text
// helpers of the line builders.
#pragma once

#include <stddef.h>
#include <wchar.h>

namespace kv {

// Appends bytes (already with CR LF line ends) to the live debug log in one
// write, opening it first when needed and rolling it once it is too large.
void AppendToDebugLog(const char* data, size_t length);

// Bytes the live debug log can still take before it reaches its size limit
// (the whole limit while it is not open).
size_t DebugLogRoom();

// Moves the live log into the history chain if it has reached its size limit
// (another thread or process may have rolled it already).
void RollDebugLog();

// Replaces each "%%" by "%" in place; other percent signs stay. Returns the
// new length.
size_t CollapsePercentPairs(char* text, size_t length);

// Copies in to out turning every LF not preceded by CR into CR LF; out must
// hold 2 * length bytes. Returns the bytes written.
size_t ToCrLf(const char* in, size_t length, char* out);

// Converts length wide characters to the ANSI code page into out (size bytes,
// always terminated), cutting what does not fit.
void ToNarrow(const wchar_t* wide, size_t length, char* out, size_t size);

}  // namespace kv
