#include "symbols/symbol_store.h"

#include <windows.h>
#include <string.h>

#include <algorithm>

#include "common/mapped_file.h"
#include "common/path_parts.h"
#include "dump/module_identity.h"
#include "platform/error_text.h"
#include "platform/file_replace.h"
#include "platform/folder_listing.h"
#include "platform/folder_tree.h"

namespace kvdiag {
namespace {

bool SameBytes(const std::string& a, const std::string& b) {
    const MappedFile first(a.c_str()), second(b.c_str());
    if (!first.opened() || !second.opened() || first.size() != second.size()) return false;
    return first.size() == 0 ||
           (first.base() && second.base() && memcmp(first.base(), second.base(), first.size()) == 0);
}

ByteView ViewOf(const MappedFile& file) { return ByteView(file.base(), file.size()); }

}  // namespace

void SymbolStore::Add(const std::string& path, const std::vector<std::string>& given) {
    if (!IsFolder(path)) return AddFile(path, given);
    std::vector<std::string> names;
    const DWORD error = kv::platform::VisitFolder(path, "*", [&names](const WIN32_FIND_DATAA& found) {
        const std::string name = found.cFileName;
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
            (EndsWithIgnoringCase(name, ".exe") || EndsWithIgnoringCase(name, ".dll") ||
             EndsWithIgnoringCase(name, ".pdb")))
            names.push_back(name);
        return true;
    });
    if (error) {
        fprintf(out_, "  failed   %s: the folder cannot be listed (%s)\n", path.c_str(),
                kv::platform::ErrorText(error).c_str());
        ++tally_.problems;
        return;
    }
    std::sort(names.begin(), names.end());
    // Images first: each takes its own PDB by identity; a PDB no image of
    // the folder named is still stored on its own afterwards.
    std::stable_partition(names.begin(), names.end(),
                          [](const std::string& n) { return !EndsWithIgnoringCase(n, ".pdb"); });
    for (const auto& name : names) AddFile(path + "\\" + name, given);
}

void SymbolStore::AddFile(const std::string& path, const std::vector<std::string>& given) {
    const MappedFile file(path.c_str());
    if (!file.opened()) {
        fprintf(out_, "  failed   %s: cannot be opened (%s)\n", path.c_str(),
                kv::platform::ErrorText(GetLastError()).c_str());
        ++tally_.problems;
        return;
    }
    ImageIdentity image;
    PdbIdentity pdb;
    if (ReadImageIdentity(ViewOf(file), image)) return AddImage(path, given);
    if (ReadPdbIdentity(ViewOf(file), pdb)) return AddPdb(path);
    fprintf(out_, "  failed   %s: neither an executable image nor a PDB\n", path.c_str());
    ++tally_.problems;
}

void SymbolStore::AddImage(const std::string& path, const std::vector<std::string>& given) {
    ImageIdentity image;
    {
        const MappedFile file(path.c_str());
        ReadImageIdentity(ViewOf(file), image);
    }
    const std::string name = FileNameOf(path);
    if (!Put(path, name, ImageKey(image.timeDateStamp, image.sizeOfImage))) return;
    if (!image.hasPdb) {
        fprintf(out_, "  no PDB   %s: the image names no PDB (no CodeView record); stored without one\n", name.c_str());
        ++tally_.noPdb;
        return;
    }
    // The debugger asks for the PDB by the name the image records.
    const std::string pdbName = FileNameOf(image.pdb.name);
    std::vector<std::string> candidates;
    for (const auto& g : given)
        if (_stricmp(FileNameOf(g).c_str(), pdbName.c_str()) == 0) candidates.push_back(g);
    candidates.push_back(FolderOf(path).empty() ? pdbName : FolderOf(path) + "\\" + pdbName);
    if (image.pdb.name.find_first_of("\\/") != std::string::npos) candidates.push_back(image.pdb.name);
    std::string foreign;
    for (const auto& candidate : candidates) {
        const MappedFile file(candidate.c_str());
        PdbIdentity found;
        if (!file.opened() || !ReadPdbIdentity(ViewOf(file), found)) continue;
        if (found != image.pdb) {
            foreign += "\n           " + candidate + " is " + DescribePdb(found) + ", of another build";
            continue;
        }
        const std::string key = PdbKey(image.pdb);
        const std::string target = StoreFilePath(folder_, pdbName, key);
        for (const auto& done : pdbsDone_)
            if (_stricmp(done.c_str(), target.c_str()) == 0) return;
        if (Put(candidate, pdbName, key)) pdbsDone_.push_back(target);
        return;
    }
    fprintf(out_, "  no PDB   %s: its PDB %s (%s) was not found beside it%s\n", name.c_str(), pdbName.c_str(),
            DescribePdb(image.pdb).c_str(), foreign.empty() ? "" : foreign.c_str());
    ++tally_.noPdb;
}

void SymbolStore::AddPdb(const std::string& path) {
    PdbIdentity pdb;
    {
        const MappedFile file(path.c_str());
        ReadPdbIdentity(ViewOf(file), pdb);
    }
    const std::string key = PdbKey(pdb), target = StoreFilePath(folder_, FileNameOf(path), key);
    for (const auto& done : pdbsDone_)
        if (_stricmp(done.c_str(), target.c_str()) == 0) return;
    if (Put(path, FileNameOf(path), key)) pdbsDone_.push_back(target);
}

bool SymbolStore::Put(const std::string& source, const std::string& name, const std::string& key) {
    const std::string relative = name + "\\" + key + "\\" + name;
    const std::string target = folder_ + "\\" + relative;
    if (GetFileAttributesA(target.c_str()) != INVALID_FILE_ATTRIBUTES) {
        if (SameBytes(source, target)) {
            fprintf(out_, "  present  %s\n", relative.c_str());
            ++tally_.present;
            return true;
        }
        // Same identity, other bytes: never replace what is stored.
        fprintf(out_, "  conflict %s: the store holds another file of the same identity; kept it, %s not added\n",
                relative.c_str(), source.c_str());
        ++tally_.problems;
        return false;
    }
    kv::platform::CreateFolderTree(folder_ + "\\" + name + "\\" + key);  // a failure shows at the copy
    // Copied under a private name, then renamed: a reader of the store never
    // sees half a file, and a file that appeared meanwhile is not replaced.
    const std::string partial = target + ".partial-" + std::to_string(GetCurrentProcessId());
    DWORD error = 0;
    if (!CopyFileA(source.c_str(), partial.c_str(), TRUE)) {
        error = GetLastError();
    } else if ((error = kv::platform::RenameFileDurably(partial, target, false)) != 0) {
        DeleteFileA(partial.c_str());
        if (SameBytes(source, target)) {
            fprintf(out_, "  present  %s\n", relative.c_str());
            ++tally_.present;
            return true;
        }
    }
    if (error) {
        fprintf(out_, "  failed   %s: cannot be written (%s)\n", relative.c_str(),
                kv::platform::ErrorText(error).c_str());
        ++tally_.problems;
        return false;
    }
    fprintf(out_, "  stored   %s\n", relative.c_str());
    ++tally_.stored;
    return true;
}

}  // namespace kvdiag
