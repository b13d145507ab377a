// Replacing and renaming files so that a reader, a crash or a power cut sees
// either the old content or the new, never a part; links are never followed.
#pragma once

#include <windows.h>

#include <string>

namespace kv {
namespace platform {

// Renames from to to with write-through, so the rename is on the disk when
// this returns. replaceExisting: a file standing at to is replaced (a link
// there is replaced as a name, its target left alone); otherwise a file
// there fails the rename with ERROR_ALREADY_EXISTS and both stay as they
// were. Returns 0 or the error.
DWORD RenameFileDurably(const std::string& from, const std::string& to, bool replaceExisting);

// Writes data to "<path>.new" (created anew: whatever stood there, a link
// included, is removed as a name first), flushes it to the disk, then
// renames it over path with RenameFileDurably. Returns 0 or the error of the
// step that failed; then path is as it was and the ".new" file is gone.
DWORD ReplaceFileDurably(const std::string& path, const void* data, size_t size);
inline DWORD ReplaceFileDurably(const std::string& path, const std::string& text) {
    return ReplaceFileDurably(path, text.data(), text.size());
}

}  // namespace platform
}  // namespace kv
