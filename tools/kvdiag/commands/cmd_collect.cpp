// kvdiag collect: one cabinet file for support with the logs, dumps,
// configuration, settings, a fresh self-check and the symbols of this machine.
// Whatever cannot be gathered is reported and the rest still goes in.
#include <windows.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "KvConfig.h"
#include "KvLogging.h"
#include "cabinet/cab_writer.h"
#include "cabinet/collect_reports.h"
#include "cabinet/scratch_folder.h"
#include "command.h"
#include "commands/ini_status.h"
#include "commands/version_report.h"
#include "common/console_text.h"
#include "common/path_parts.h"
#include "common/progress.h"
#include "common/text_format.h"
#include "logs/product_paths.h"
#include "platform/error_text.h"
#include "platform/folder_listing.h"
#include "platform/module_path.h"
#include "platform/owned_handle.h"

namespace {

using kvdiag::EndsWithIgnoringCase;
using kvdiag::FileNameOf;

constexpr double kDefaultDumpCapMb = 200;
constexpr unsigned long long kLargeFile = 4ull << 20;  // shown as a stage of its own
constexpr unsigned long long kTicksPerHour = 36000000000ull;  // FILETIME ticks of 100 ns

struct CollectOptions {
    std::string outFile;
    double sinceHours = 0;  // 0: every file
    double dumpCapMb = kDefaultDumpCapMb;
    bool force = false;  // replace an existing OUTFILE
};

bool ParseOptions(int argc, char** argv, CollectOptions& options) {
    for (int i = 0; i < argc; ++i) {
        char* end = nullptr;
        if (!_stricmp(argv[i], "--force")) {
            options.force = true;
        } else if (!_stricmp(argv[i], "--since") && i + 1 < argc) {
            options.sinceHours = strtod(argv[++i], &end);
            if (*end || options.sinceHours <= 0) return false;
        } else if (!_stricmp(argv[i], "--max-mb") && i + 1 < argc) {
            options.dumpCapMb = strtod(argv[++i], &end);
            if (*end || options.dumpCapMb < 0) return false;
        } else if (argv[i][0] == '-' || !options.outFile.empty()) {
            return false;
        } else {
            options.outFile = argv[i];
        }
    }
    return true;
}

std::string DefaultArchiveName() {
    char computer[MAX_COMPUTERNAME_LENGTH + 1] = "machine";
    DWORD length = sizeof computer;
    GetComputerNameA(computer, &length);
    SYSTEMTIME now;
    GetLocalTime(&now);
    char name[MAX_PATH];
    snprintf(name, sizeof name, "kvdiag-%s-%04u%02u%02u-%02u%02u%02u.cab", computer, now.wYear, now.wMonth, now.wDay,
             now.wHour, now.wMinute, now.wSecond);
    return name;
}

std::string FullPath(const std::string& path) {
    char full[MAX_PATH];
    const DWORD length = GetFullPathNameA(path.c_str(), sizeof full, full, nullptr);
    return length && length < sizeof full ? full : path;
}

std::string Lower(std::string text) {
    CharLowerBuffA(&text[0], DWORD(text.size()));
    return text;
}

// Whether the archive can be written, tried before any work: an existing
// file is refused unless forced (it may be a live log or an earlier archive),
// and is then only opened, not changed; a probe this creates is removed.
kvdiag::Failure CanWriteArchive(const std::string& archive, bool force) {
    const bool existed = GetFileAttributesA(archive.c_str()) != INVALID_FILE_ATTRIBUTES;
    if (existed && !force) {
        return kvdiag::Failure("exists already (--force replaces it)");
    }
    if (!kv::platform::FileHandle(CreateFileA(archive.c_str(), GENERIC_WRITE, 0, nullptr,
                                              existed ? OPEN_EXISTING : CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr))) {
        return kvdiag::Failure::FromLastError("cannot be written");
    }
    if (!existed) DeleteFileA(archive.c_str());
    return {};
}

struct FoundFile {
    std::string path;
    std::string relative;  // below the folder listed, with backslashes
    unsigned long long size;
    unsigned long long written;  // FILETIME ticks
};

// Every file in folder (and below it with recurse); the error when it cannot be listed.
DWORD ListFiles(const std::string& folder, bool recurse, std::vector<FoundFile>& files,
               const std::string& relative = "") {
    const std::string base = relative.empty() ? folder : folder + "\\" + relative;
    std::vector<kv::platform::FolderEntry> entries;
    if (const DWORD error = kv::platform::ListFolder(base, "*", entries)) return error;
    for (const kv::platform::FolderEntry& entry : entries) {
        const std::string inner = relative.empty() ? entry.name : relative + "\\" + entry.name;
        if (!entry.IsFolder())
            files.push_back({base + "\\" + entry.name, inner, entry.size,
                             (static_cast<unsigned long long>(entry.written.dwHighDateTime) << 32) |
                                 entry.written.dwLowDateTime});
        else if (recurse)
            ListFiles(folder, true, files, inner);
    }
    return 0;
}

// The archive being filled and the account of it: printed as it goes, and
// kept for the archive's own Report\collect.txt.
class Collection {
public:
    Collection(kvdiag::CabWriter& cab, kvdiag::Progress& progress) : cab_(cab), progress_(progress) {}

    void Say(const char* format, ...) {
        va_list args;
        va_start(args, format);
        const std::string line = kvdiag::FormattedV(format, args);
        va_end(args);
        fputs(line.c_str(), stdout);
        fflush(stdout);
        account_ += line;
    }
    bool Add(const std::string& source, const std::string& nameInCab) {
        WIN32_FILE_ATTRIBUTE_DATA before{};
        GetFileAttributesExA(source.c_str(), GetFileExInfoStandard, &before);
        const unsigned long long size =
            (static_cast<unsigned long long>(before.nFileSizeHigh) << 32) | before.nFileSizeLow;
        if (size >= kLargeFile) {
            char stage[MAX_PATH + 64];
            snprintf(stage, sizeof stage, "compressing %s (%.1f MB)", nameInCab.c_str(), double(size) / (1024 * 1024));
            progress_.Stage(stage);
        }
        if (const kvdiag::Failure failure = cab_.Add(source, nameInCab)) {
            Skip(nameInCab, failure.text());
            return false;
        }
        Say("  added    %-46s %12llu bytes\n", nameInCab.c_str(), static_cast<unsigned long long>(cab_.lastSize()));
        ++added_;
        return true;
    }
    uint64_t lastPacked() const { return cab_.lastPacked(); }
    void Skip(const std::string& what, const std::string& reason) {
        Say("  skipped  %-46s %s\n", what.c_str(), reason.c_str());
        ++skipped_;
    }
    // A report made by running kvdiag itself.
    void AddCommandOutput(const kvdiag::ScratchFolder& scratch, const std::string& arguments,
                          const std::string& nameInCab) {
        progress_.Stage("running kvdiag " + arguments);
        const std::string file = scratch.File(FileNameOf(nameInCab));
        if (const kvdiag::Failure failure = kvdiag::RunSelf(arguments, file)) Skip(nameInCab, failure.text());
        else Add(file, nameInCab);
    }

    kvdiag::Progress& progress() { return progress_; }
    const std::string& account() const { return account_; }
    int added() const { return added_; }
    int skipped() const { return skipped_; }

private:
    kvdiag::CabWriter& cab_;
    kvdiag::Progress& progress_;
    std::string account_;
    int added_ = 0, skipped_ = 0;
};

void CollectReports(Collection& c, const kvdiag::ScratchFolder& scratch, const std::string& iniArgument) {
    c.Say("Reports\n");
    const std::string version = scratch.File("version.txt");
    if (kvdiag::WriteVersionReport(version)) c.Add(version, "Report\\version.txt");
    else c.Skip("Report\\version.txt", "cannot be written to " + version);
    c.AddCommandOutput(scratch, "paths" + iniArgument, "Report\\paths.txt");
    c.AddCommandOutput(scratch, "selfcheck" + iniArgument, "Report\\selfcheck.txt");
    for (const std::string& exe : kvdiag::ExecutablesWithSettings())
        c.AddCommandOutput(scratch, "settings \"" + exe + "\"", "Report\\settings\\" + exe + ".txt");
}

void CollectConfiguration(Collection& c, const kvdiag::IniStatus& ini) {
    c.Say("Configuration\n");
    c.Add(ini.path, "Config\\" + FileNameOf(ini.path));
    const std::string profile = kvdiag::ProfilePath();
    if (!profile.empty()) {
        if (GetFileAttributesA(profile.c_str()) != INVALID_FILE_ATTRIBUTES)
            c.Add(profile, "Config\\" + FileNameOf(profile));
        else c.Skip("Config\\" + FileNameOf(profile), "the profile " + profile + " does not exist");
    } else {
        c.Skip("profile", "none configured ([RuntimeManager] Profile or the RUN folder missing)");
    }
}

// The log folder: every log first, then the dumps newest first up to the cap.
void CollectLogFolder(Collection& c, const CollectOptions& options, const std::string& archive) {
    std::string folder;
    if (!kvdiag::LogFolder(folder)) {
        c.Say("Logs\n");
        c.Skip("log folder", "not named by the product INI file");
        return;
    }
    c.Say("Logs in %s\n", folder.c_str());
    c.progress().Stage("adding the logs");
    std::vector<FoundFile> files;
    if (const DWORD error = ListFiles(folder, true, files)) {
        c.Skip(folder, "cannot be listed (" + kv::platform::ErrorText(error) + ")");
        return;
    }
    FILETIME nowTime;
    GetSystemTimeAsFileTime(&nowTime);
    const unsigned long long now =
        (static_cast<unsigned long long>(nowTime.dwHighDateTime) << 32) | nowTime.dwLowDateTime;
    const unsigned long long cutoff =
        options.sinceHours > 0 ? now - static_cast<unsigned long long>(options.sinceHours * kTicksPerHour) : 0;
    std::vector<FoundFile> dumps;
    std::sort(files.begin(), files.end(),
              [](const FoundFile& a, const FoundFile& b) { return a.relative < b.relative; });
    for (const FoundFile& f : files) {
        if (Lower(f.path) == Lower(archive)) continue;
        if (EndsWithIgnoringCase(f.relative, ".dmp")) dumps.push_back(f);
        else if (f.written < cutoff) c.Skip("Logs\\" + f.relative, "older than --since");
        else c.Add(f.path, "Logs\\" + f.relative);
    }
    c.Say("Dumps: the newest always, then newest first up to %g MB packed in all (--max-mb changes it)\n",
          options.dumpCapMb);
    c.progress().Stage("adding the dumps");
    std::sort(dumps.begin(), dumps.end(), [](const FoundFile& a, const FoundFile& b) { return a.written > b.written; });
    const double cap = options.dumpCapMb * 1024 * 1024;
    double packed = 0, raw = 0;  // of the dumps taken so far: the ratio predicts the next one
    for (const FoundFile& d : dumps) {
        const bool newest = &d == &dumps.front();
        const double expected = raw > 0 ? double(d.size) * packed / raw : double(d.size);
        if (d.written < cutoff && !newest) {
            c.Skip("Logs\\" + d.relative, "older than --since");
        } else if (!newest && packed + expected > cap) {
            char reason[128];
            snprintf(reason, sizeof reason, "over the %g MB cap for dumps (%.1f MB, about %.1f MB packed)",
                     options.dumpCapMb, double(d.size) / (1024 * 1024), expected / (1024 * 1024));
            c.Skip("Logs\\" + d.relative, reason);
        } else if (c.Add(d.path, "Logs\\" + d.relative)) {
            packed += double(c.lastPacked());
            raw += double(d.size);
            if (newest && packed > cap)
                c.Say("  (the newest dump alone is over the %g MB cap: taken all the same)\n", options.dumpCapMb);
        }
    }
    if (dumps.empty()) c.Say("  (no dumps)\n");
}

// The PDB files beside the library, beside kvdiag and in the product's BIN folder.
void CollectSymbols(Collection& c, bool iniValid) {
    c.Say("Symbols\n");
    c.progress().Stage("adding the symbols");
    std::vector<std::string> folders = {kv::platform::ModuleFolder(GetModuleHandleA("KvDebugHelp.dll")),
                                         kv::platform::ModuleFolder(nullptr)};
    std::string bin;
    if (iniValid && kvdiag::ProductFolder(KvFolderBin, bin)) folders.push_back(bin);
    std::vector<std::string> seenFolders, seenNames;
    for (const std::string& folder : folders) {
        const std::string key = Lower(FullPath(folder));
        if (folder.empty() || std::find(seenFolders.begin(), seenFolders.end(), key) != seenFolders.end()) continue;
        seenFolders.push_back(key);
        std::vector<FoundFile> files;
        ListFiles(folder, false, files);
        for (const FoundFile& f : files) {
            if (!EndsWithIgnoringCase(f.relative, ".pdb")) continue;
            if (std::find(seenNames.begin(), seenNames.end(), Lower(f.relative)) != seenNames.end()) {
                c.Skip(f.path, "a PDB of that name is already in the archive");
                continue;
            }
            seenNames.push_back(Lower(f.relative));
            c.Add(f.path, "Symbols\\" + f.relative);
        }
    }
    if (seenNames.empty()) c.Say("  (no PDB files beside the binaries)\n");
}

}  // namespace

KVDIAG_COMMAND(collect, "[OUTFILE]", "one cabinet file for support: logs, dumps, INI, settings, self-check, symbols",
               {"--force", nullptr, "replace an existing OUTFILE"},
               {"--since", "HOURS", "only logs and dumps of the last HOURS hours"},
               {"--max-mb", "MB", "cap on the packed size of the older dumps (default 200; the newest goes in always)"},
               kvdiag::kIniOption) {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    CollectOptions options;
    if (!ParseOptions(argc, argv, options)) return kvdiag::UsageError();
    const std::string archive = FullPath(options.outFile.empty() ? DefaultArchiveName() : options.outFile);
    if (const kvdiag::Failure refusal = CanWriteArchive(archive, options.force))
        return kvdiag::ReportFailure(kvdiag::Failure(archive + " " + refusal.text() + "; nothing collected"));
    const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(iniOption);
    const std::string iniArgument = ini.path.empty() ? "" : " --ini \"" + ini.path + "\"";
    kvdiag::ScratchFolder scratch;
    kvdiag::CabWriter cab(archive);
    if (!scratch.ok() || !cab.ok())
        return kvdiag::ReportFailure(kvdiag::Failure("cannot start " + archive + ": " +
                                                     (cab.ok() ? "no temporary folder" : cab.failure().text())));
    kvdiag::Progress progress("collect");
    cab.OnProgress([&progress](uint64_t done, uint64_t total) { progress.Count(done, total); });
    Collection c(cab, progress);
    c.Say("Collecting into %s\n", archive.c_str());

    CollectReports(c, scratch, iniArgument);
    if (ini.valid) {
        CollectConfiguration(c, ini);
        CollectLogFolder(c, options, archive);
    } else {
        c.Say("Configuration and logs\n");
        c.Skip("INI file, profile, logs, dumps",
               "the product INI file is not usable: " + (ini.reason.empty() ? std::string("no path") : ini.reason));
    }
    CollectSymbols(c, ini.valid);

    // The account itself goes in last, so support reads what was left out and why.
    progress.Stage("writing the archive");
    const std::string account = scratch.File("collect.txt");
    bool accountAdded = false;
    if (FILE* out = fopen(account.c_str(), "w")) {
        fputs(c.account().c_str(), out);
        fclose(out);
        accountAdded = !cab.Add(account, "Report\\collect.txt");
    }
    if (const kvdiag::Failure failure = cab.Finish())
        return kvdiag::ReportFailure(kvdiag::Failure(archive + ": " + failure.text()));
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExA(archive.c_str(), GetFileExInfoStandard, &data);
    const unsigned long long bytes = (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    const unsigned long long raw = cab.rawBytes();
    printf("Archive %s: %d files, %llu bytes packed from %llu (%.0f%%); %d skipped\n", archive.c_str(),
           c.added() + int(accountAdded), bytes, raw, raw ? 100.0 * double(bytes) / double(raw) : 100.0, c.skipped());
    return 0;
}
