// The forwarder's own small files (cursors, status) in its state folder,
// read without following links and replaced with kv::platform::ReplaceFileDurably,
// which follows none either: the service runs as LocalSystem, and a link
// planted in its folder must not make it read or write a file somewhere else.
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
}  // namespace kvdiag
