// A file opened for reading the way kvdiag reads logs other processes write:
// sharing read, write and delete, so a writer can append, rename (roll) or
// delete it while kvdiag holds it.
#pragma once

#include <windows.h>
#include <stdint.h>

#include <string>

#include "platform/owned_handle.h"

namespace kvdiag {

// What identifies a file across renames within one folder: its index on the
// volume. (The volume's serial number is left out: the files compared share
// a folder, and Wine now and then reports the serial of an open file as 0.)
struct FileIdentity {
    uint64_t index = 0;
    bool operator==(const FileIdentity& other) const { return index == other.index; }
};

class SharedFile {
public:
    explicit SharedFile(const std::string& path);
    SharedFile(SharedFile&& other) noexcept = default;
    SharedFile& operator=(SharedFile&&) = delete;

    bool opened() const { return handle_.valid(); }
    HANDLE handle() const { return handle_.get(); }
    const FileIdentity& identity() const { return identity_; }
    uint64_t size() const { return size_; }            // when it was opened
    const FILETIME& lastWrite() const { return lastWrite_; }

    // Appends the bytes from offset up to the end of the file to text.
    bool ReadFrom(uint64_t offset, std::string& text) const;
    // The first count bytes (fewer in a shorter file).
    std::string Head(size_t count) const;

private:
    kv::platform::FileHandle handle_;
    FileIdentity identity_;
    uint64_t size_ = 0;
    FILETIME lastWrite_{};
};

}  // namespace kvdiag
