#include "dump/pe_image.h"

#include <stddef.h>

namespace kvdiag {

PeImage::PeImage(const std::string& path) : path_(path), file_(std::make_unique<MappedFile>(path.c_str())) {
    bytes_ = ByteView(file_->base(), file_->size());
    Parse();
}

PeImage::PeImage(const std::string& label, std::vector<BYTE> fileBytes) : path_(label), rebuilt_(std::move(fileBytes)) {
    bytes_ = ByteView(rebuilt_.data(), rebuilt_.size());
    Parse();
}

void PeImage::Parse() {
    const BYTE* base = bytes_.base();
    const uint64_t size = bytes_.size();
    if (!base || size < sizeof(IMAGE_DOS_HEADER)) return;
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    if (dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew < 0 ||
        uint64_t(dos->e_lfanew) + sizeof(IMAGE_NT_HEADERS64) > size)
        return;
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    if (nt->Signature != IMAGE_NT_SIGNATURE || nt->FileHeader.Machine != IMAGE_FILE_MACHINE_AMD64 ||
        nt->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC)
        return;
    const uint64_t sectionsEnd = uint64_t(dos->e_lfanew) + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) +
                                 nt->FileHeader.SizeOfOptionalHeader +
                                 uint64_t(nt->FileHeader.NumberOfSections) * sizeof(IMAGE_SECTION_HEADER);
    if (sectionsEnd > size) return;
    nt_ = nt;
    if (nt->OptionalHeader.NumberOfRvaAndSizes > IMAGE_DIRECTORY_ENTRY_EXCEPTION) {
        const IMAGE_DATA_DIRECTORY& table = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXCEPTION];
        functions_ = reinterpret_cast<const RUNTIME_FUNCTION*>(At(table.VirtualAddress, table.Size));
        if (functions_) functionCount_ = table.Size / sizeof(RUNTIME_FUNCTION);
    }
}

const BYTE* PeImage::At(uint32_t rva, uint32_t size) const {
    if (!nt_) return nullptr;
    const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(nt_);
    for (WORD i = 0; i < nt_->FileHeader.NumberOfSections; ++i, ++section) {
        const uint64_t start = section->VirtualAddress, inFile = section->SizeOfRawData;
        if (rva < start || uint64_t(rva) + size > start + inFile) continue;
        const uint64_t offset = section->PointerToRawData + (rva - start);
        return offset + size <= bytes_.size() ? bytes_.base() + offset : nullptr;
    }
    return nullptr;
}

const RUNTIME_FUNCTION* PeImage::FunctionAt(uint32_t rva) const {
    // The table is sorted by start address.
    uint32_t low = 0, high = functionCount_;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        const RUNTIME_FUNCTION& f = functions_[middle];
        if (rva < f.BeginAddress) high = middle;
        else if (rva >= f.EndAddress) low = middle + 1;
        else return &f;
    }
    return nullptr;
}

}  // namespace kvdiag
