// Replacing a file so that a reader, a crash or a power cut sees either the
// old content or the new, never a part.
#pragma once

#include <windows.h>

#include <string>

namespace kv {
namespace platform {

// Writes data to "<path>.new", flushes it to the disk, then moves it over
// path with write-through, so the rename is on the disk when this returns.
// Returns 0 or the error of the step that failed; then path is as it was
// and the ".new" file is gone.
DWORD ReplaceFileDurably(const std::string& path, const void* data, size_t size);
inline DWORD ReplaceFileDurably(const std::string& path, const std::string& text) {
    return ReplaceFileDurably(path, text.data(), text.size());
}

}  // namespace platform
}  // namespace kv
