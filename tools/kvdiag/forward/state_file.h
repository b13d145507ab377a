// The forwarder's own small files (cursors, status) in its state folder,
// read and replaced without following links: the service runs as
// LocalSystem, and a link planted in its folder must not make it read or
// write a file somewhere else.
#pragma once

#include <windows.h>

#include <string>

namespace kvdiag {

// ERROR_STOPPED_ON_SYMLINK of the Windows SDK, which mingw-w64 leaves out.
constexpr DWORD kErrorStoppedOnLink = 681;

// Reads path whole into text. Returns 0, ERROR_FILE_NOT_FOUND, ERROR_FILE_TOO_LARGE
// (more than maxBytes), kErrorStoppedOnLink (path is a link or another
// reparse point), or the error that kept it from being read.
DWORD ReadStateFile(const std::string& path, size_t maxBytes, std::string& text);

// Writes text to "<path>.new" (created anew: whatever stood there, a link
// included, is removed as a name first) and moves it over path, which is
// replaced as a name too, never followed. durable: flushed to the disk
// first, so a power cut leaves the old file or the new one. Returns 0 or
// the error of the step that failed; path is then as it was.
DWORD ReplaceStateFile(const std::string& path, const std::string& text, bool durable = true);

}  // namespace kvdiag
