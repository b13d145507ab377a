// FileNameGenerator: the names of every log and data file, each carrying the
// process's component name so processes sharing the log folder stay apart.
#include <stdio.h>
#include <string.h>

#include "KvLogging.h"
#include "crash/crash_handover.h"

std::string FileNameGenerator::theComponentName;
std::mutex FileNameGenerator::theComponentNameMutex;

// A component name becomes part of every file name in the shared log folder,
// so it must stay a plain part of one: no folder separators or "..", which
// would put files outside the folder, and nothing Windows refuses or drops in
// a file name.
bool FileNameGenerator::IsComponentName(const std::string& name) {
    if (name.find("..") != std::string::npos) return false;
    if (!name.empty() && (name.back() == '.' || name.back() == ' ')) return false;
    for (unsigned char c : name)
        if (c < 32 || strchr("\\/:*?\"<>|", c)) return false;
    return true;
}

void FileNameGenerator::SetComponentName(const std::string& name) {
    if (!IsComponentName(name)) {
        // Refused and said so; the files keep the name they had.
        DbgLogWrite("SetComponentName: \"%.200s\" refused: a component name may not hold \\ / : * ? \" < > |, "
                    "\"..\", control characters or a trailing dot or blank",
                    name.c_str());
        return;
    }
    std::lock_guard<std::mutex> hold(theComponentNameMutex);
    if (&name != &theComponentName) theComponentName = name;
    kv::PublishComponentName(name.c_str());
}

std::string FileNameGenerator::GenerateFileName(const std::string& base, const std::string& extension) {
    std::string name = base;
    {
        std::lock_guard<std::mutex> hold(theComponentNameMutex);
        if (!theComponentName.empty()) {
            name += '.';
            name += theComponentName;
        }
    }
    return name + extension;
}

static const char* BackupExtension(bool backup) { return backup ? ".bak" : ".dat"; }

std::string FileNameGenerator::GetDebugLogFileName(int index) {
    if (index < 1) return GenerateFileName("debug", ".log");
    char extension[16];
    snprintf(extension, sizeof extension, ".%03d", index);
    return GenerateFileName("debug", extension);
}

std::string FileNameGenerator::GetSyslogFileName(bool backup) { return GenerateFileName("syslog", BackupExtension(backup)); }
std::string FileNameGenerator::GetParamsFileName(bool backup) { return GenerateFileName("Params", BackupExtension(backup)); }
std::string FileNameGenerator::GetReloadFileName(bool backup) { return GenerateFileName("reloadlog", BackupExtension(backup)); }
std::string FileNameGenerator::GetTracelogFileName(bool backup) { return GenerateFileName("tracelog", BackupExtension(backup)); }
std::string FileNameGenerator::GetKernelDataFileName() { return GenerateFileName("kernel", ".dat"); }
std::string FileNameGenerator::GetMemoryDumpFileName() { return GenerateFileName("user", ".dmp"); }
std::string FileNameGenerator::GetDBLogDirName() { return GenerateFileName("DBLog", ""); }

extern "C" void SetComponentName(const char* name) {
    if (name) FileNameGenerator::SetComponentName(name);
}
