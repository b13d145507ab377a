// Adds images and PDBs to a symbol store in the two-tier layout the
// platform's debuggers read through srv*DIR: each file under its name and
// the identity a dump records for it, so a dump from any build finds its
// own files. A file already stored is left as it is.
#pragma once

#include <stdio.h>

#include <string>
#include <vector>

namespace kvdiag {

struct StoreTally {
    int stored = 0;     // new files in the store
    int present = 0;    // already there, byte for byte
    int noPdb = 0;      // images stored without their PDB (none named, or not found)
    int problems = 0;   // unreadable inputs, foreign files, conflicts, write failures
};

class SymbolStore {
public:
    SymbolStore(std::string folder, FILE* out) : folder_(std::move(folder)), out_(out) {}

    // Adds a file (an image with the PDB found beside it or among `given`,
    // or a PDB) or every image and PDB of a folder, saying what it did.
    void Add(const std::string& path, const std::vector<std::string>& given);
    const StoreTally& tally() const { return tally_; }

private:
    void AddFile(const std::string& path, const std::vector<std::string>& given);
    void AddImage(const std::string& path, const std::vector<std::string>& given);
    void AddPdb(const std::string& path);
    // Copies `source` to <store>\<name>\<key>\<name> unless it is there already.
    bool Put(const std::string& source, const std::string& name, const std::string& key);

    std::string folder_;
    FILE* out_;
    StoreTally tally_;
    std::vector<std::string> pdbsDone_;  // store paths handled in this run
};

}  // namespace kvdiag
