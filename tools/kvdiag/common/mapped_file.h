// A whole file mapped read-only for the life of the object. Opened with full
// sharing: a module a process runs from, or a dump still being written, can
// be read while others hold it.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "platform/owned_handle.h"

namespace kvdiag {

class MappedFile {
public:
    explicit MappedFile(const char* path) {
        file_.reset(CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, 0, nullptr));
        if (!file_) return;
        LARGE_INTEGER size{};
        if (GetFileSizeEx(file_.get(), &size)) size_ = static_cast<uint64_t>(size.QuadPart);
        if (size_ == 0) return;
        mapping_.reset(CreateFileMappingA(file_.get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
        if (mapping_) base_ = static_cast<const BYTE*>(MapViewOfFile(mapping_.get(), FILE_MAP_READ, 0, 0, 0));
    }
    ~MappedFile() {
        if (base_) UnmapViewOfFile(base_);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    bool opened() const { return file_.valid(); }
    uint64_t size() const { return size_; }
    // Null for a file that is empty or could not be mapped.
    const BYTE* base() const { return base_; }

private:
    kv::platform::FileHandle file_;
    kv::platform::KernelHandle mapping_;
    const BYTE* base_ = nullptr;
    uint64_t size_ = 0;
};

}  // namespace kvdiag
