// The identities a debugger finds a module's files by: an image's link time
// stamp and size, and the PDB it names (signature GUID, age, file name), read
// from the files themselves or from a dump's module record. Files from the
// field are hostile: every offset is checked against the file's size.
#pragma once

#include <windows.h>
#include <stdint.h>

#include <string>

#include "common/byte_view.h"

namespace kvdiag {

// What a CodeView (RSDS) record names: the PDB an image was linked with.
struct PdbIdentity {
    GUID guid{};
    uint32_t age = 0;
    std::string name;  // as the record spells it: a file name or a build machine's path
    bool operator==(const PdbIdentity& other) const {
        return memcmp(&guid, &other.guid, sizeof guid) == 0 && age == other.age;
    }
    bool operator!=(const PdbIdentity& other) const { return !(*this == other); }
};

struct ImageIdentity {
    uint32_t timeDateStamp = 0;
    uint32_t sizeOfImage = 0;
    bool hasPdb = false;  // the debug directory holds a CodeView record
    PdbIdentity pdb;
};

// An RSDS record's identity; false for anything else (an old NB10 record, garbage).
bool ParseCodeViewRecord(ByteView record, PdbIdentity& out);
// A PE file's identity (32- or 64-bit); false when the bytes are not a PE image.
bool ReadImageIdentity(ByteView file, ImageIdentity& out);
// A PDB file's GUID and age (MSF 7.0 container: the PDB stream's GUID, the
// age of the debug-info stream where there is one, as the linker writes it
// into the image); false when the bytes are no such PDB. `name` is left empty.
bool ReadPdbIdentity(ByteView file, PdbIdentity& out);

// The store's folder names: "<TimeDateStamp 8 hex digits><SizeOfImage hex>"
// and "<GUID 32 hex digits><age hex>", upper case.
std::string ImageKey(uint32_t timeDateStamp, uint32_t sizeOfImage);
std::string PdbKey(const PdbIdentity& pdb);
// "{GUID} age N" for messages.
std::string DescribePdb(const PdbIdentity& pdb);

}  // namespace kvdiag

namespace kvdiag {

// Where a store keeps a file: "<store>\<name>\<key>\<name>".
inline std::string StoreFilePath(const std::string& store, const std::string& name, const std::string& key) {
    return store + "\\" + name + "\\" + key + "\\" + name;
}

}  // namespace kvdiag
