// A whole file mapped read-only for the life of the object. Opened with full
// sharing: a module a process runs from, or a dump still being written, can
// be read while others hold it.
#pragma once

#include <windows.h>
#include <stdint.h>

namespace kvdiag {

class MappedFile {
public:
    explicit MappedFile(const char* path) {
        file_ = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
        if (file_ == INVALID_HANDLE_VALUE) return;
        LARGE_INTEGER size{};
        if (GetFileSizeEx(file_, &size)) size_ = static_cast<uint64_t>(size.QuadPart);
        if (size_ == 0) return;
        mapping_ = CreateFileMappingA(file_, nullptr, PAGE_READONLY, 0, 0, nullptr);
        if (mapping_) base_ = static_cast<const BYTE*>(MapViewOfFile(mapping_, FILE_MAP_READ, 0, 0, 0));
    }
    ~MappedFile() {
        if (base_) UnmapViewOfFile(base_);
        if (mapping_) CloseHandle(mapping_);
        if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    bool opened() const { return file_ != INVALID_HANDLE_VALUE; }
    uint64_t size() const { return size_; }
    // Null for a file that is empty or could not be mapped.
    const BYTE* base() const { return base_; }

private:
    HANDLE file_ = INVALID_HANDLE_VALUE;
    HANDLE mapping_ = nullptr;
    const BYTE* base_ = nullptr;
    uint64_t size_ = 0;
};

}  // namespace kvdiag
