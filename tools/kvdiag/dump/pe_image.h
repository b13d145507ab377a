// A 64-bit PE file read from disk: its headers, the bytes at an RVA and the
// function table (.pdata) that unwinding needs. The file is mapped as a plain
// file, never loaded, so nothing of it runs and any machine's module can be
// read.
#pragma once

#include <windows.h>
#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "common/byte_view.h"
#include "common/mapped_file.h"

namespace kvdiag {

class PeImage {
public:
    // Opens the file; usable() tells whether it is a 64-bit PE image.
    explicit PeImage(const std::string& path);
    // An image rebuilt from the memory a dump kept of it, laid out as a file
    // (see ImageFromMemory); `label` says where it came from.
    PeImage(const std::string& label, std::vector<BYTE> fileBytes);

    bool usable() const { return nt_ != nullptr; }
    const std::string& path() const { return path_; }
    bool fromDump() const { return file_ == nullptr; }
    // The image as a file (for a copy on disk).
    ByteView bytes() const { return bytes_; }
    uint32_t timeDateStamp() const { return nt_ ? nt_->FileHeader.TimeDateStamp : 0; }
    uint32_t sizeOfImage() const { return nt_ ? nt_->OptionalHeader.SizeOfImage : 0; }

    // Pointer to `size` bytes at an RVA inside one section; null when they
    // are not all in the file.
    const BYTE* At(uint32_t rva, uint32_t size) const;
    // The function-table entry whose range holds the RVA; null for a leaf
    // function (one that has none) or an RVA outside any function.
    const RUNTIME_FUNCTION* FunctionAt(uint32_t rva) const;

private:
    void Parse();

    std::string path_;
    std::unique_ptr<MappedFile> file_;
    std::vector<BYTE> rebuilt_;
    ByteView bytes_;
    const IMAGE_NT_HEADERS64* nt_ = nullptr;
    const RUNTIME_FUNCTION* functions_ = nullptr;
    uint32_t functionCount_ = 0;
};

}  // namespace kvdiag
