// kvdiag triage: many dumps at once (files, folders, kvdiag collect
// cabinets), grouped by crash signature so that the known problems show
// before anyone reads a single dump.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cabinet/cab_reader.h"
#include "command.h"
#include "common/console_text.h"
#include "common/path_parts.h"
#include "common/progress.h"
#include "dump/dump_analysis.h"
#include "dump/dump_damage.h"
#include "dump/dump_reader.h"
#include "dump/triage_table.h"
#include "platform/error_text.h"
#include "platform/folder_listing.h"

namespace {

using kvdiag::EndsWithIgnoringCase;
using kvdiag::FileNameOf;
using kvdiag::FolderOf;
using kvdiag::IsFolder;

constexpr int kMaxFolderDepth = 8;

// A private folder for what comes out of cabinets, removed with its files.
class ScratchFolder {
public:
    ScratchFolder() {
        char temp[MAX_PATH];
        if (!GetTempPathA(sizeof temp, temp)) return;
        const std::string path = std::string(temp) + "kvdiag-triage-" + std::to_string(GetCurrentProcessId());
        if (CreateDirectoryA(path.c_str(), nullptr)) path_ = path;
    }
    ~ScratchFolder() {
        for (auto it = made_.rbegin(); it != made_.rend(); ++it)
            if (!DeleteFileA(it->c_str())) RemoveDirectoryA(it->c_str());
        if (!path_.empty()) RemoveDirectoryA(path_.c_str());
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    bool ok() const { return !path_.empty(); }
    std::string NewFolder() {
        const std::string folder = path_ + "\\" + std::to_string(made_.size() + 1);
        if (!CreateDirectoryA(folder.c_str(), nullptr)) return {};
        made_.push_back(folder);
        return folder;
    }
    void Made(const std::string& file) { made_.push_back(file); }

private:
    std::string path_;
    std::vector<std::string> made_;  // folders and files, in the order made
};

// Where a dump came from: what the cabinet (or the unpacked one it lies in) tells.
struct Origin {
    std::string machine, version;
    std::string symbols;  // the PDBs collect put beside the dumps
};

struct DumpInput {
    std::string file, shown;
    Origin origin;
};

// kvdiag collect's Report\version.txt: "Machine   NAME, Windows ..." and the
// version under "KvDebugHelp.dll".
Origin ReadVersionReport(const std::string& path) {
    Origin origin;
    FILE* in = fopen(path.c_str(), "r");
    if (!in) return origin;
    char line[1024];
    bool dllNext = false;
    auto valueOf = [](const char* text) {
        std::string value = text;
        value = value.substr(value.find_first_not_of(" \t") == std::string::npos ? value.size()
                                                                                 : value.find_first_not_of(" \t"));
        return value.substr(0, value.find_first_of(",\r\n"));
    };
    while (fgets(line, sizeof line, in)) {
        if (dllNext && line[0] == ' ') origin.version = valueOf(line);
        dllNext = strncmp(line, "KvDebugHelp.dll", 15) == 0;
        if (strncmp(line, "Machine", 7) == 0) origin.machine = valueOf(line + 7);
    }
    fclose(in);
    if (origin.version.find('.') == std::string::npos) origin.version.clear();
    return origin;
}

// A dump in an unpacked cabinet ("<cab>\Logs\x.dmp") finds <cab>\Report\version.txt above it.
Origin OriginAbove(const std::string& dump) {
    std::string folder = FolderOf(dump);
    for (int level = 0; level < 4 && !folder.empty(); ++level, folder = FolderOf(folder)) {
        if (GetFileAttributesA((folder + "\\Report\\version.txt").c_str()) == INVALID_FILE_ATTRIBUTES) continue;
        Origin origin = ReadVersionReport(folder + "\\Report\\version.txt");
        if (IsFolder(folder + "\\Symbols")) origin.symbols = folder + "\\Symbols";
        return origin;
    }
    return {};
}

class Inputs {
public:
    explicit Inputs(ScratchFolder& scratch) : scratch_(scratch) {}

    void Add(const std::string& path, int depth = 0) {
        if (IsFolder(path)) return AddFolder(path, depth);
        if (EndsWithIgnoringCase(path, ".cab")) return AddCabinet(path);
        dumps.push_back({path, path, OriginAbove(path)});
    }

    std::vector<DumpInput> dumps;
    std::vector<std::string> problems;

private:
    void AddFolder(const std::string& folder, int depth) {
        std::vector<std::string> names;
        const DWORD error = kv::platform::VisitFolder(folder, "*", [&names, depth](const WIN32_FIND_DATAA& found) {
            const std::string name = found.cFileName;
            const bool isFolder = found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
            if (isFolder ? depth < kMaxFolderDepth : EndsWithIgnoringCase(name, ".dmp") || EndsWithIgnoringCase(name, ".cab"))
                names.push_back(name);
            return true;
        });
        if (error) problems.push_back(folder + ": cannot be listed (" + kv::platform::ErrorText(error) + ")");
        std::sort(names.begin(), names.end());
        for (const auto& name : names) Add(folder + "\\" + name, depth + 1);
    }

    void AddCabinet(const std::string& cabinet) {
        const std::string folder = scratch_.NewFolder();
        if (folder.empty()) {
            problems.push_back(cabinet + ": no temporary folder to unpack it into");
            return;
        }
        int dumpCount = 0;
        auto targetFor = [&dumpCount](const std::string& name) -> std::string {
            if (EndsWithIgnoringCase(name, ".dmp")) return std::to_string(++dumpCount) + ".dmp";
            if (_stricmp(name.c_str(), "Report\\version.txt") == 0) return "version.txt";
            if (_strnicmp(name.c_str(), "Symbols\\", 8) == 0 && EndsWithIgnoringCase(name, ".pdb")) return FileNameOf(name);
            return {};
        };
        std::vector<kvdiag::CabEntry> entries;
        if (const kvdiag::Failure failure = kvdiag::ExtractCabinet(cabinet, folder, targetFor, entries))
            problems.push_back(cabinet + ": " + failure.text());
        for (const auto& e : entries) scratch_.Made(e.extractedPath);
        Origin origin = ReadVersionReport(folder + "\\version.txt");
        origin.symbols = folder;
        if (origin.machine.empty()) origin.machine = MachineFromCabinetName(FileNameOf(cabinet));
        for (const auto& e : entries)
            if (EndsWithIgnoringCase(e.nameInCab, ".dmp")) dumps.push_back({e.extractedPath, cabinet + "\\" + e.nameInCab, origin});
    }

    // "kvdiag-<machine>-<yyyymmdd>-<hhmmss>.cab", as collect names it.
    static std::string MachineFromCabinetName(const std::string& name) {
        if (_strnicmp(name.c_str(), "kvdiag-", 7) != 0 || name.size() < 7 + 21) return {};
        return name.substr(7, name.size() - 7 - 21);
    }

    ScratchFolder& scratch_;
};

// "AlarmServer" for "user.AlarmServer.dmp" and "AlarmServer.1234.20240101-120000.hang.dmp".
std::string ComponentFromName(const std::string& file) {
    const std::string name = FileNameOf(file);
    if (_strnicmp(name.c_str(), "user.", 5) == 0 && name.find('.', 5) != std::string::npos &&
        name.find('.', 5) == name.size() - 4 && name.find_first_not_of("0123456789", 5) < name.size() - 4)
        return name.substr(5, name.size() - 9);  // not "user.2.dmp", the second dump of one name
    if (EndsWithIgnoringCase(name, ".hang.dmp") && name.find('.') < name.size() - 9) return name.substr(0, name.find('.'));
    return {};
}

std::string VersionText(uint32_t ms, uint32_t ls) {
    char text[48];
    snprintf(text, sizeof text, "%u.%u.%u.%u", ms >> 16, ms & 0xFFFF, ls >> 16, ls & 0xFFFF);
    return text;
}

kvdiag::TriagedDump Triage(const DumpInput& input, const kvdiag::SymbolPath& symbols) {
    // Names from a cabinet and its version report are plant text: shown escaped.
    kvdiag::TriagedDump t;
    t.path = kvdiag::ShownLine(input.shown);
    t.machine = kvdiag::ShownLine(input.origin.machine);
    t.version = kvdiag::ShownLine(input.origin.version);
    t.component = kvdiag::ShownLine(ComponentFromName(input.shown));
    const kvdiag::MappedDump dump(input.file.c_str());
    if (!dump.opened()) {
        t.damaged = true;
        t.reason = "cannot be opened (" + kv::platform::ErrorText(GetLastError()) + ")";
        return t;
    }
    if (!dump.header()) {
        t.damaged = true;
        t.reason = dump.size() ? "not a minidump" : "empty file";
        return t;
    }
    t.time = dump.header()->TimeDateStamp;
    const kvdiag::DumpDamage damage = kvdiag::FindDumpDamage(dump);
    if (!damage.findings.empty()) {
        t.damaged = true;
        t.reason = damage.findings.front() + (damage.findings.size() > 1 ? " (and more)" : "");
        return t;
    }
    kvdiag::WalkOptions options;
    options.symbols = symbols;
    if (!input.origin.symbols.empty()) options.symbols.elements.push_back({input.origin.symbols, false});
    const kvdiag::DumpStacks stacks(dump, input.file, options);
    const kvdiag::DumpAnalysis analysis = kvdiag::AnalyzeDump(dump, stacks, false);
    t.signature = analysis.signature;
    t.exception = analysis.signature.substr(0, analysis.signature.find(' '));
    for (const auto& m : stacks.modules()) {
        if (t.component.empty()) t.component = m.name;  // the first module is the program
        if (_stricmp(m.name.c_str(), "KvDebugHelp") == 0 && m.versionMs)
            t.version = VersionText(m.versionMs, m.versionLs);
    }
    return t;
}

}  // namespace

KVDIAG_COMMAND(triage, "PATH...", "groups dumps, folders of dumps and collect cabinets by crash signature",
               {"--csv", nullptr, "the table as comma-separated values, for a spreadsheet"},
               {"--symbols", "PATH",
                "where images and PDBs are looked for by identity: folders and srv*DIR stores separated by ';' "
                "(default _NT_SYMBOL_PATH; a cabinet's own Symbols folder is always searched)"}) {
    std::vector<std::string> paths;
    std::string symbolPath;
    bool csv = false, wrongUse = false;
    for (int i = 0; i < argc; ++i) {
        if (!strcmp(argv[i], "--symbols") && i + 1 < argc) symbolPath += std::string(";") + argv[++i];
        else if (!strcmp(argv[i], "--csv")) csv = true;
        else if (argv[i][0] != '-') paths.push_back(argv[i]);
        else wrongUse = true;
    }
    if (wrongUse || paths.empty()) return kvdiag::UsageError();
    const kvdiag::SymbolPath symbols = kvdiag::SymbolPath::FromOptionOrEnvironment(symbolPath);
    kvdiag::Progress progress("triage");
    ScratchFolder scratch;
    Inputs inputs(scratch);
    for (const auto& path : paths) {
        progress.Stage("looking for dumps in " + path);
        if (GetFileAttributesA(path.c_str()) == INVALID_FILE_ATTRIBUTES)
            inputs.problems.push_back(path + ": not found");
        else if (EndsWithIgnoringCase(path, ".cab") && !scratch.ok())
            inputs.problems.push_back(path + ": no temporary folder to unpack it into");
        else inputs.Add(path);
    }
    kvdiag::TriageTable table;
    for (size_t i = 0; i < inputs.dumps.size(); ++i) {
        progress.Stage("reading dump " + std::to_string(i + 1) + " of " + std::to_string(inputs.dumps.size()));
        table.Add(Triage(inputs.dumps[i], symbols));
    }
    if (csv) table.PrintCsv(stdout);
    else table.Print(stdout);
    for (const auto& problem : inputs.problems) kvdiag::ReportFailure(kvdiag::Failure(problem));
    if (table.size() == 0) kvdiag::ReportFailure(kvdiag::Failure("no dumps found"));
    return inputs.problems.empty() && table.size() ? 0 : 1;
}
