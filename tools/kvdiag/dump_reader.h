// A minidump file mapped read-only, its streams found with DbgHelp's
// MiniDumpReadDumpStream.
#pragma once

#include <windows.h>
#include <dbghelp.h>
#include <stdint.h>

#include <string>

namespace kvdiag {

// The file mapped read-only for the life of the object.
class MappedDump {
public:
    explicit MappedDump(const char* path) {
        file_ = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        if (file_ == INVALID_HANDLE_VALUE) return;
        LARGE_INTEGER size{};
        if (GetFileSizeEx(file_, &size)) size_ = static_cast<uint64_t>(size.QuadPart);
        if (size_ == 0) return;
        mapping_ = CreateFileMappingA(file_, nullptr, PAGE_READONLY, 0, 0, nullptr);
        if (mapping_) base_ = static_cast<const BYTE*>(MapViewOfFile(mapping_, FILE_MAP_READ, 0, 0, 0));
    }
    ~MappedDump() {
        if (base_) UnmapViewOfFile(base_);
        if (mapping_) CloseHandle(mapping_);
        if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
    }
    MappedDump(const MappedDump&) = delete;
    MappedDump& operator=(const MappedDump&) = delete;

    bool opened() const { return file_ != INVALID_HANDLE_VALUE; }
    uint64_t size() const { return size_; }
    const BYTE* base() const { return base_; }

    template <typename T>
    const T* Stream(MINIDUMP_STREAM_TYPE type) const {
        PMINIDUMP_DIRECTORY dir = nullptr;
        void* stream = nullptr;
        ULONG streamSize = 0;
        if (!base_ || !MiniDumpReadDumpStream(const_cast<BYTE*>(base_), type, &dir, &stream, &streamSize))
            return nullptr;
        return streamSize >= sizeof(T) ? static_cast<const T*>(stream) : nullptr;
    }
    // A MINIDUMP_STRING at an offset of the file, as narrow text.
    std::string Text(RVA rva) const {
        if (!base_ || rva + sizeof(ULONG32) > size_) return "?";
        const auto* s = reinterpret_cast<const MINIDUMP_STRING*>(base_ + rva);
        char text[MAX_PATH * 2] = "";
        WideCharToMultiByte(CP_ACP, 0, s->Buffer, static_cast<int>(s->Length / sizeof(WCHAR)), text,
                            sizeof text - 1, nullptr, nullptr);
        return text;
    }

private:
    HANDLE file_ = INVALID_HANDLE_VALUE;
    HANDLE mapping_ = nullptr;
    const BYTE* base_ = nullptr;
    uint64_t size_ = 0;
};

}  // namespace kvdiag
