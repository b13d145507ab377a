#include "dump/image_from_memory.h"

#include <stddef.h>

#include <algorithm>

#include "common/byte_view.h"

namespace kvdiag {
namespace {

constexpr uint64_t kPage = 4096;
constexpr uint64_t kLargestImage = 512ull << 20;  // a size past this is damage, not a module

// Copies what the dump holds of [address, address + size) into out, a page
// at a time; the number of bytes found.
uint64_t CopyPages(const DumpMemory& memory, uint64_t address, BYTE* out, uint64_t size) {
    uint64_t found = 0;
    for (uint64_t done = 0; done < size;) {
        const uint64_t chunk = std::min(kPage - ((address + done) & (kPage - 1)), size - done);
        if (memory.Read(address + done, out + done, chunk)) found += chunk;
        done += chunk;
    }
    return found;
}

}  // namespace

std::vector<BYTE> ImageFromMemory(const DumpMemory& memory, uint64_t base, uint64_t sizeOfImage) {
    BYTE first[kPage];
    if (!memory.Read(base, first, sizeof first)) return {};
    const ByteView page(first, sizeof first);
    const auto* dos = page.At<IMAGE_DOS_HEADER>(0);
    if (!dos || dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew < 0) return {};
    const auto* nt = page.At<IMAGE_NT_HEADERS64>(uint64_t(dos->e_lfanew));
    if (!nt || nt->Signature != IMAGE_NT_SIGNATURE || nt->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC ||
        nt->OptionalHeader.SizeOfImage != sizeOfImage)
        return {};
    const Records<IMAGE_SECTION_HEADER> sections = page.Span<IMAGE_SECTION_HEADER>(
        uint64_t(dos->e_lfanew) + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) + nt->FileHeader.SizeOfOptionalHeader,
        nt->FileHeader.NumberOfSections);
    if (sections.count != nt->FileHeader.NumberOfSections) return {};
    // The file ends with the last section's raw data; a layout that claims
    // far more than the image's own size is damaged.
    uint64_t fileSize = nt->OptionalHeader.SizeOfHeaders;
    for (const auto& s : sections) fileSize = std::max(fileSize, uint64_t(s.PointerToRawData) + s.SizeOfRawData);
    if (fileSize > kLargestImage || fileSize > 2 * sizeOfImage + (1u << 20) ||
        nt->OptionalHeader.SizeOfHeaders > sizeOfImage)
        return {};
    std::vector<BYTE> file(fileSize);
    CopyPages(memory, base, file.data(), nt->OptionalHeader.SizeOfHeaders);
    uint64_t found = 0;
    for (const auto& s : sections) {
        const uint64_t size = s.Misc.VirtualSize ? std::min<uint64_t>(s.SizeOfRawData, s.Misc.VirtualSize)
                                                 : s.SizeOfRawData;
        if (uint64_t(s.VirtualAddress) + size > sizeOfImage) continue;
        found += CopyPages(memory, base + s.VirtualAddress, file.data() + s.PointerToRawData, size);
    }
    if (!found) return {};
    return file;
}

}  // namespace kvdiag
