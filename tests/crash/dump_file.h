// Reads a minidump back through DbgHlp: the file is mapped and each stream is
// found with MiniDumpReadDumpStream.
#pragma once

#include <windows.h>
#include <dbghelp.h>

#include <string>

namespace kvtest {

class DumpFile {
public:
    explicit DumpFile(const std::string& path) {
        file_ = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        if (file_ == INVALID_HANDLE_VALUE) return;
        LARGE_INTEGER size{};
        GetFileSizeEx(file_, &size);
        size_ = static_cast<uint64_t>(size.QuadPart);
        if (size_ == 0) return;
        mapping_ = CreateFileMappingA(file_, nullptr, PAGE_READONLY, 0, 0, nullptr);
        if (mapping_) base_ = MapViewOfFile(mapping_, FILE_MAP_READ, 0, 0, 0);
    }
    ~DumpFile() {
        if (base_) UnmapViewOfFile(base_);
        if (mapping_) CloseHandle(mapping_);
        if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
    }
    DumpFile(const DumpFile&) = delete;
    DumpFile& operator=(const DumpFile&) = delete;

    bool valid() const { return base_ != nullptr; }
    uint64_t size() const { return size_; }

    template <typename T>
    const T* Stream(MINIDUMP_STREAM_TYPE type) const {
        PMINIDUMP_DIRECTORY dir = nullptr;
        void* stream = nullptr;
        ULONG streamSize = 0;
        if (!base_ || !MiniDumpReadDumpStream(base_, type, &dir, &stream, &streamSize)) return nullptr;
        return streamSize >= sizeof(T) ? static_cast<const T*>(stream) : nullptr;
    }

private:
    HANDLE file_ = INVALID_HANDLE_VALUE;
    HANDLE mapping_ = nullptr;
    void* base_ = nullptr;
    uint64_t size_ = 0;
};

}  // namespace kvtest
