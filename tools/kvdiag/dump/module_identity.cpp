#include "dump/module_identity.h"

#include <stddef.h>
#include <stdio.h>

namespace kvdiag {
namespace {

constexpr uint32_t kRsds = 0x53445352;  // "RSDS"

struct RsdsHeader {
    uint32_t signature;
    GUID guid;
    uint32_t age;
};

// The bytes at an RVA of a PE file as laid out on disk; empty when no section holds them.
ByteView AtRva(ByteView file, const IMAGE_SECTION_HEADER* sections, WORD count, uint32_t rva, uint32_t size) {
    for (WORD i = 0; i < count; ++i) {
        const IMAGE_SECTION_HEADER& s = sections[i];
        if (rva < s.VirtualAddress || uint64_t(rva) + size > uint64_t(s.VirtualAddress) + s.SizeOfRawData) continue;
        const ByteView bytes = file.Part(uint64_t(s.PointerToRawData) + (rva - s.VirtualAddress), size);
        return bytes.size() == size ? bytes : ByteView();
    }
    return {};
}

// The PDB (MSF 7.0) container: fixed-size blocks, a directory of streams
// whose block list is itself kept in blocks.
class MsfFile {
public:
    explicit MsfFile(ByteView file) : file_(file) {
        static const char kMagic[] = "Microsoft C/C++ MSF 7.00\r\n\x1a" "DS\0\0";
        if (!file.Holds(0, 56) || memcmp(file.base(), kMagic, 32) != 0) return;
        memcpy(&blockSize_, file.base() + 32, 4);
        uint32_t directorySize = 0, blockMapBlock = 0;
        memcpy(&directorySize, file.base() + 44, 4);
        memcpy(&blockMapBlock, file.base() + 52, 4);
        if (blockSize_ != 512 && blockSize_ != 1024 && blockSize_ != 2048 && blockSize_ != 4096) return;
        // The directory's blocks are listed in the block that blockMapBlock names.
        const uint64_t directoryBlocks = (uint64_t(directorySize) + blockSize_ - 1) / blockSize_;
        if (directoryBlocks > blockSize_ / 4) return;
        const ByteView map = Block(blockMapBlock);
        if (map.size() != blockSize_) return;
        directory_.resize(directorySize);
        for (uint64_t i = 0, done = 0; i < directoryBlocks; ++i) {
            uint32_t number = 0;
            memcpy(&number, map.base() + i * 4, 4);
            const ByteView block = Block(number);
            if (block.size() != blockSize_) {
                directory_.clear();
                return;
            }
            const uint64_t n = directorySize - done < blockSize_ ? directorySize - done : blockSize_;
            memcpy(&directory_[done], block.base(), n);
            done += n;
        }
        ok_ = directorySize >= 4;
    }

    // Up to `limit` bytes from the start of stream `index`; empty when it
    // does not exist or its blocks lie outside the file.
    std::string Stream(uint32_t index, uint32_t limit) const {
        if (!ok_) return {};
        const ByteView dir(reinterpret_cast<const unsigned char*>(directory_.data()), directory_.size());
        const auto* count = dir.At<uint32_t>(0);
        if (!count || index >= *count) return {};
        const Records<uint32_t> sizes = dir.Span<uint32_t>(4, *count);
        if (sizes.count != *count) return {};
        uint64_t blockListAt = 4 + uint64_t(*count) * 4;
        for (uint32_t i = 0; i < index; ++i)
            if (sizes[i] != 0xFFFFFFFFu) blockListAt += (uint64_t(sizes[i]) + blockSize_ - 1) / blockSize_ * 4;
        const uint32_t size = sizes[index] == 0xFFFFFFFFu ? 0 : sizes[index];
        const uint32_t wanted = size < limit ? size : limit;
        std::string out;
        for (uint64_t done = 0; done < wanted; done += blockSize_) {
            const auto* number = dir.At<uint32_t>(blockListAt + done / blockSize_ * 4);
            const ByteView block = number ? Block(*number) : ByteView();
            if (block.size() != blockSize_) return {};
            out.append(reinterpret_cast<const char*>(block.base()),
                       static_cast<size_t>(wanted - done < blockSize_ ? wanted - done : blockSize_));
        }
        return out;
    }

private:
    ByteView Block(uint32_t number) const {
        const ByteView block = file_.Part(uint64_t(number) * blockSize_, blockSize_);
        return block.size() == blockSize_ ? block : ByteView();
    }

    ByteView file_;
    uint32_t blockSize_ = 0;
    std::string directory_;
    bool ok_ = false;
};

}  // namespace

bool ParseCodeViewRecord(ByteView record, PdbIdentity& out) {
    const auto* header = record.At<RsdsHeader>(0);
    if (!header || header->signature != kRsds) return false;
    out.guid = header->guid;
    out.age = header->age;
    const ByteView name = record.Part(sizeof(RsdsHeader), MAX_PATH);
    const char* text = reinterpret_cast<const char*>(name.base());
    size_t length = 0;
    while (length < name.size() && text[length]) ++length;
    out.name.assign(text ? text : "", length);
    return true;
}

bool ReadImageIdentity(ByteView file, ImageIdentity& out) {
    const auto* dos = file.At<IMAGE_DOS_HEADER>(0);
    if (!dos || dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew < 0) return false;
    const uint64_t ntAt = uint64_t(dos->e_lfanew);
    const auto* nt = file.At<IMAGE_NT_HEADERS32>(ntAt);
    if (!nt || nt->Signature != IMAGE_NT_SIGNATURE) return false;
    const uint16_t magic = nt->OptionalHeader.Magic;
    const IMAGE_DATA_DIRECTORY* directories;
    uint32_t directoryCount;
    if (magic == IMAGE_NT_OPTIONAL_HDR64_MAGIC) {
        const auto* nt64 = file.At<IMAGE_NT_HEADERS64>(ntAt);
        if (!nt64) return false;
        out.sizeOfImage = nt64->OptionalHeader.SizeOfImage;
        directories = nt64->OptionalHeader.DataDirectory;
        directoryCount = nt64->OptionalHeader.NumberOfRvaAndSizes;
    } else if (magic == IMAGE_NT_OPTIONAL_HDR32_MAGIC) {
        out.sizeOfImage = nt->OptionalHeader.SizeOfImage;
        directories = nt->OptionalHeader.DataDirectory;
        directoryCount = nt->OptionalHeader.NumberOfRvaAndSizes;
    } else {
        return false;
    }
    out.timeDateStamp = nt->FileHeader.TimeDateStamp;
    out.hasPdb = false;
    const uint64_t sectionsAt =
        ntAt + offsetof(IMAGE_NT_HEADERS32, OptionalHeader) + nt->FileHeader.SizeOfOptionalHeader;
    const Records<IMAGE_SECTION_HEADER> sections =
        file.Span<IMAGE_SECTION_HEADER>(sectionsAt, nt->FileHeader.NumberOfSections);
    if (directoryCount <= IMAGE_DIRECTORY_ENTRY_DEBUG || sections.count != nt->FileHeader.NumberOfSections) return true;
    const IMAGE_DATA_DIRECTORY& debug = directories[IMAGE_DIRECTORY_ENTRY_DEBUG];
    const ByteView entries = AtRva(file, sections.data, WORD(sections.count), debug.VirtualAddress, debug.Size);
    for (const auto& entry : entries.Span<IMAGE_DEBUG_DIRECTORY>(0, entries.size() / sizeof(IMAGE_DEBUG_DIRECTORY))) {
        if (entry.Type != IMAGE_DEBUG_TYPE_CODEVIEW) continue;
        const ByteView record = file.Part(entry.PointerToRawData, entry.SizeOfData);
        if (ParseCodeViewRecord(record, out.pdb)) {
            out.hasPdb = true;
            break;
        }
    }
    return true;
}

bool ReadPdbIdentity(ByteView file, PdbIdentity& out) {
    const MsfFile msf(file);
    // Stream 1 (PDB info): version, signature, age, GUID.
    const std::string info = msf.Stream(1, 28);
    if (info.size() < 28) return false;
    memcpy(&out.age, info.data() + 8, 4);
    memcpy(&out.guid, info.data() + 12, sizeof(GUID));
    // Stream 3 (debug info) starts with -1, a version and the age the image records.
    const std::string dbi = msf.Stream(3, 12);
    int32_t dbiSignature = 0;
    if (dbi.size() >= 12) memcpy(&dbiSignature, dbi.data(), 4);
    if (dbiSignature == -1) memcpy(&out.age, dbi.data() + 8, 4);
    out.name.clear();
    return true;
}

std::string ImageKey(uint32_t timeDateStamp, uint32_t sizeOfImage) {
    char key[24];
    snprintf(key, sizeof key, "%08X%X", timeDateStamp, sizeOfImage);
    return key;
}

std::string PdbKey(const PdbIdentity& pdb) {
    const GUID& g = pdb.guid;
    char key[48];
    snprintf(key, sizeof key, "%08lX%04X%04X%02X%02X%02X%02X%02X%02X%02X%02X%X", static_cast<unsigned long>(g.Data1),
             g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6],
             g.Data4[7], pdb.age);
    return key;
}

std::string DescribePdb(const PdbIdentity& pdb) {
    const GUID& g = pdb.guid;
    char text[80];
    snprintf(text, sizeof text, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X} age %u",
             static_cast<unsigned long>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3],
             g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7], pdb.age);
    return text;
}

}  // namespace kvdiag
