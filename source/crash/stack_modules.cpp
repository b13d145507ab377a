#include "crash/stack_modules.h"

#include <windows.h>
#include <stdio.h>
#include <string.h>

#include "KvLogging.h"

namespace kv {
namespace {

// The CodeView record lld and the Microsoft linker write into the debug directory.
struct CodeViewRecord {
    DWORD signature;  // "RSDS"
    GUID guid;
    DWORD age;
    char pdbName[1];
};

// An image's headers read in place, every offset checked against its size.
bool DescribeImage(const unsigned char* base, char* text, size_t room) {
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    if (dos->e_magic != IMAGE_DOS_SIGNATURE || dos->e_lfanew <= 0 || dos->e_lfanew > 4096) return false;
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    if (nt->Signature != IMAGE_NT_SIGNATURE || nt->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC) return false;
    const DWORD imageSize = nt->OptionalHeader.SizeOfImage;
    const char* pdb = "";
    const IMAGE_DATA_DIRECTORY& debug = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_DEBUG];
    if (debug.VirtualAddress && debug.Size <= imageSize && debug.VirtualAddress <= imageSize - debug.Size) {
        const auto* entries = reinterpret_cast<const IMAGE_DEBUG_DIRECTORY*>(base + debug.VirtualAddress);
        for (DWORD i = 0; i < debug.Size / sizeof *entries; ++i) {
            const IMAGE_DEBUG_DIRECTORY& e = entries[i];
            if (e.Type != IMAGE_DEBUG_TYPE_CODEVIEW || e.SizeOfData < sizeof(CodeViewRecord) ||
                e.AddressOfRawData > imageSize || e.SizeOfData > imageSize - e.AddressOfRawData)
                continue;
            const auto* record = reinterpret_cast<const CodeViewRecord*>(base + e.AddressOfRawData);
            const size_t room = e.SizeOfData - offsetof(CodeViewRecord, pdbName);
            if (record->signature == 0x53445352 && memchr(record->pdbName, 0, room)) pdb = record->pdbName;
        }
    }
    // Without a PDB name (a system DLL) the export directory names the image.
    const IMAGE_DATA_DIRECTORY& exports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    if (!*pdb && exports.VirtualAddress && exports.Size >= sizeof(IMAGE_EXPORT_DIRECTORY) &&
        exports.VirtualAddress <= imageSize - sizeof(IMAGE_EXPORT_DIRECTORY)) {
        const auto* directory = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + exports.VirtualAddress);
        if (directory->Name && directory->Name < imageSize &&
            memchr(base + directory->Name, 0, imageSize - directory->Name))
            pdb = reinterpret_cast<const char*>(base + directory->Name);
    }
    const char* slash = strrchr(pdb, '\\');
    snprintf(text, room, " 0x%llx 0x%lx %08lx %s;", reinterpret_cast<unsigned long long>(base),
             static_cast<unsigned long>(imageSize), static_cast<unsigned long>(nt->FileHeader.TimeDateStamp),
             *pdb ? (slash ? slash + 1 : pdb) : "-");
    return true;
}

}  // namespace

void LogStackModules(const uint64_t* addresses, uint32_t count) {
    const void* seen[40];
    uint32_t seenCount = 0;
    char line[1000] = "Stack modules:";
    size_t used = strlen(line);
    for (uint32_t i = 0; i < count; ++i) {
        MEMORY_BASIC_INFORMATION region;
        if (!addresses[i] ||
            !VirtualQuery(reinterpret_cast<const void*>(addresses[i]), &region, sizeof region) ||
            region.Type != MEM_IMAGE || region.State != MEM_COMMIT)
            continue;
        const void* base = region.AllocationBase;
        bool known = false;
        for (uint32_t j = 0; j < seenCount; ++j) known = known || seen[j] == base;
        if (known || seenCount == sizeof seen / sizeof *seen) continue;
        char entry[400];
        if (!DescribeImage(static_cast<const unsigned char*>(base), entry, sizeof entry)) continue;
        const size_t length = strlen(entry);
        if (used + length >= sizeof line) break;
        memcpy(line + used, entry, length + 1);
        used += length;
        seen[seenCount++] = base;
    }
    if (seenCount) DbgLogWrite("%s\n", line);
}

}  // namespace kv
