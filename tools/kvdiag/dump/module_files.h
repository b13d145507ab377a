// The files of each module a dump lists, found by the identities the dump
// records, never by a name alone: the image by link time stamp and size, the
// PDB by signature GUID and age. Searched at the path the dump names (the
// plant's own folder), beside the dump and along a symbol path; every place
// looked at and every file refused for being of another build is kept, so a
// module that stays unnamed can say why.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include "dump/dump_memory.h"
#include "dump/dump_reader.h"
#include "dump/module_identity.h"
#include "dump/pe_image.h"
#include "dump/symbol_path.h"

namespace kvdiag {

struct DumpModule {
    std::string path;  // as the dump names it
    std::string name;  // "KvDebugHelp" for "C:\...\KvDebugHelp.dll", as debuggers name modules
    uint64_t base = 0, size = 0;
    uint32_t timeDateStamp = 0;
    uint32_t versionMs = 0, versionLs = 0;
    bool operatingSystem = false;  // below the Windows folder
    bool hasPdbRecord = false;     // from the dump's CodeView record, or the image's
    PdbIdentity pdb;

    std::unique_ptr<PeImage> image;  // null when no file with the dump's identity was found (nor its memory)
    std::string pdbPath;             // empty when no PDB with the record's identity was found
    bool symbolsLoaded = false;      // its frames are named (from the PDB; the system's also by exports)
    std::vector<std::string> imageLooked, pdbLooked, refused;
};

// The dump's modules; with findFiles their images and (with findPdbs) PDBs.
// An image found nowhere is rebuilt from the dump's memory where it holds it.
std::vector<DumpModule> LocateModules(const DumpView& dump, const std::string& dumpPath, const SymbolPath& symbols,
                                      const DumpMemory& memory, bool findFiles, bool findPdbs);

const DumpModule* ModuleAt(const std::vector<DumpModule>& modules, uint64_t address);

}  // namespace kvdiag
