#include "dump/module_files.h"

#include <windows.h>
#include <stdio.h>

#include "common/mapped_file.h"
#include "common/path_parts.h"
#include "dump/image_from_memory.h"

namespace kvdiag {
namespace {

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string WithoutExtension(const std::string& name) {
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(0, dot);
}

// "C:\Windows\System32\ntdll.dll" and the like: the system's own modules.
bool BelowWindowsFolder(const std::string& path) {
    const std::string lower = Lower(path);
    return lower.size() > 11 && lower[1] == ':' && lower.compare(2, 9, "\\windows\\") == 0;
}

void AddOnce(std::vector<std::string>& list, const std::string& item) {
    for (const auto& known : list)
        if (_stricmp(known.c_str(), item.c_str()) == 0) return;
    if (!item.empty()) list.push_back(item);
}

bool Exists(const std::string& path) { return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::string Hex(uint32_t value) {
    char text[16];
    snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

void FindImage(DumpModule& m, const std::string& dumpFolder, const SymbolPath& symbols) {
    const std::string file = FileNameOf(m.path);
    std::vector<std::string> candidates;
    AddOnce(candidates, m.path);
    AddOnce(candidates, dumpFolder + "\\" + file);
    for (const auto& c : symbols.Candidates(file, ImageKey(m.timeDateStamp, uint32_t(m.size)))) AddOnce(candidates, c);
    for (const auto& candidate : candidates) {
        m.imageLooked.push_back(candidate);
        if (!Exists(candidate)) continue;
        auto image = std::make_unique<PeImage>(candidate);
        const bool same = image->usable() && image->sizeOfImage() == m.size &&
                          (m.timeDateStamp == 0 || image->timeDateStamp() == m.timeDateStamp);
        if (same) {
            m.image = std::move(image);
            return;
        }
        m.refused.push_back(candidate + " is of another build (time stamp " + Hex(image->timeDateStamp()) +
                            ", size " + Hex(image->sizeOfImage()) + "; the dump's: " + Hex(m.timeDateStamp) +
                            ", " + Hex(uint32_t(m.size)) + ")");
    }
}

void FindPdb(DumpModule& m, const std::string& dumpFolder, const SymbolPath& symbols) {
    const std::string file = FileNameOf(m.pdb.name);
    if (file.empty()) return;
    std::vector<std::string> candidates;
    if (m.image && !m.image->fromDump()) AddOnce(candidates, FolderOf(m.image->path()) + "\\" + file);
    if (!FolderOf(m.path).empty()) AddOnce(candidates, FolderOf(m.path) + "\\" + file);
    AddOnce(candidates, dumpFolder + "\\" + file);
    for (const auto& c : symbols.Candidates(file, PdbKey(m.pdb))) AddOnce(candidates, c);
    if (m.pdb.name.find_first_of("\\/") != std::string::npos) AddOnce(candidates, m.pdb.name);
    for (const auto& candidate : candidates) {
        m.pdbLooked.push_back(candidate);
        if (!Exists(candidate)) continue;
        const MappedFile pdbFile(candidate.c_str());
        PdbIdentity found;
        if (!ReadPdbIdentity(ByteView(pdbFile.base(), pdbFile.size()), found)) {
            m.refused.push_back(candidate + " is no readable PDB");
        } else if (found != m.pdb) {
            m.refused.push_back(candidate + " is a PDB of another build (" + DescribePdb(found) + ", the module's: " +
                                DescribePdb(m.pdb) + ")");
        } else {
            m.pdbPath = candidate;
            return;
        }
    }
}

}  // namespace

std::vector<DumpModule> LocateModules(const DumpView& dump, const std::string& dumpPath, const SymbolPath& symbols,
                                      const DumpMemory& memory, bool findFiles, bool findPdbs) {
    const std::string dumpFolder = FolderOf(dumpPath).empty() ? "." : FolderOf(dumpPath);
    std::vector<DumpModule> modules;
    for (const MINIDUMP_MODULE& record : dump.List<MINIDUMP_MODULE>(ModuleListStream)) {
        DumpModule m;
        m.path = dump.Text(record.ModuleNameRva);
        m.name = WithoutExtension(FileNameOf(m.path));
        m.base = record.BaseOfImage;
        m.size = record.SizeOfImage;
        m.timeDateStamp = record.TimeDateStamp;
        m.versionMs = record.VersionInfo.dwFileVersionMS;
        m.versionLs = record.VersionInfo.dwFileVersionLS;
        m.operatingSystem = BelowWindowsFolder(m.path);
        m.hasPdbRecord = ParseCodeViewRecord(dump.file().Part(record.CvRecord.Rva, record.CvRecord.DataSize), m.pdb);
        if (findFiles) {
            FindImage(m, dumpFolder, symbols);
            if (!m.image) {
                std::vector<BYTE> rebuilt = ImageFromMemory(memory, m.base, m.size);
                if (!rebuilt.empty())
                    m.image = std::make_unique<PeImage>("(rebuilt from the dump's memory)", std::move(rebuilt));
            }
            if (!m.hasPdbRecord && m.image) {
                ImageIdentity identity;
                if (ReadImageIdentity(m.image->bytes(), identity) && identity.hasPdb) {
                    m.pdb = identity.pdb;
                    m.hasPdbRecord = true;
                }
            }
            if (findPdbs && m.hasPdbRecord) FindPdb(m, dumpFolder, symbols);
        }
        modules.push_back(std::move(m));
    }
    return modules;
}

const DumpModule* ModuleAt(const std::vector<DumpModule>& modules, uint64_t address) {
    for (const auto& m : modules)
        if (address >= m.base && address - m.base < m.size) return &m;
    return nullptr;
}

}  // namespace kvdiag
