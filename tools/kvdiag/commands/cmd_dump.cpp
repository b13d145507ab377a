// kvdiag dump: a minidump of a running process taken from outside it, for a
// process that hangs. Named "<program>.<pid>.<yyyymmdd-hhmmss>.hang.dmp" in
// the product log folder unless --out names the file; an existing file is
// never replaced (the next numbered name is taken). A process that ended
// during the dump leaves an incomplete dump, and the command says so.
#include <windows.h>
#include <tlhelp32.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "KvCrashHandler.h"
#include "command.h"
#include "common/console_text.h"
#include "commands/ini_status.h"
#include "platform/error_text.h"
#include "platform/owned_handle.h"

namespace {

struct Target {
    DWORD id;
    std::string exe;
};

std::vector<Target> RunningProcesses() {
    std::vector<Target> found;
    kv::platform::FileHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = snapshot.valid() && Process32First(snapshot.get(), &entry); more;
         more = Process32Next(snapshot.get(), &entry))
        found.push_back({entry.th32ProcessID, entry.szExeFile});
    return found;
}

// A process id, or the one running process of that executable name (".exe" optional).
bool FindTarget(const std::string& what, Target& target) {
    const std::vector<Target> running = RunningProcesses();
    char* end = nullptr;
    const unsigned long id = strtoul(what.c_str(), &end, 10);
    std::vector<Target> matches;
    for (const Target& t : running) {
        const bool byId = !what.empty() && *end == 0 && t.id == id;
        const bool byName = !_stricmp(t.exe.c_str(), what.c_str()) || !_stricmp(t.exe.c_str(), (what + ".exe").c_str());
        if (byId || byName) matches.push_back(t);
    }
    if (matches.size() == 1) {
        target = matches[0];
        return true;
    }
    if (matches.empty()) kvdiag::ReportFailure(kvdiag::Failure::Printf("no running process %s", what.c_str()));
    else kvdiag::ReportFailure(kvdiag::Failure::Printf("%zu processes are called %s; give one PID:", matches.size(), what.c_str()));
    for (const Target& t : matches) kvdiag::PrintLine(std::to_string(t.id) + " " + t.exe, "  ", stderr);
    return false;
}

}  // namespace

KVDIAG_COMMAND(dump, "PID|EXE-NAME [light|heavy]",
               "a minidump of a running (hung) process, named <program>.<pid>.<time>.hang.dmp",
               {"light", nullptr, "modules, every thread's context and stack (the default)"},
               {"heavy", nullptr, "the process's whole memory"},
               {"--out", "FILE", "write the dump to FILE instead of the product's log folder"},
               kvdiag::kIniOption) {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    const char* what = nullptr;
    const char* out = nullptr;
    int mode = 1;
    bool wrongUse = false;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--out") == 0 && i + 1 < argc) out = argv[++i];
        else if (strcmp(argv[i], "light") == 0) mode = 1;
        else if (strcmp(argv[i], "heavy") == 0) mode = 3;
        else if (!what && argv[i][0] != '-') what = argv[i];
        else wrongUse = true;
    }
    if (!what || wrongUse) return kvdiag::UsageError();
    Target target{};
    if (!FindTarget(what, target)) return 1;

    KvProcessDump dump{};
    std::string iniPath;
    if (out) {
        if (!GetFullPathNameA(out, sizeof dump.dumpPath, dump.dumpPath, nullptr)) {
            kvdiag::ReportFailure(kvdiag::Failure::Printf("bad output path %s", out));
            return 2;
        }
    } else {
        const kvdiag::IniStatus ini = kvdiag::ValidateProductIni(iniOption);
        if (!ini.valid) {
            kvdiag::ReportFailure(kvdiag::Failure("no product log folder to name the dump in: product INI file " +
                                                  ini.reason + "; give --out FILE or --ini PATH"));
            return 1;
        }
        iniPath = ini.path;
        dump.iniPath = iniPath.c_str();
    }
    // Handle data needs the right to duplicate the target's handles.
    kv::platform::KernelHandle process(
        OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | PROCESS_DUP_HANDLE | SYNCHRONIZE, FALSE, target.id));
    if (!process) {
        kvdiag::ReportFailure(kvdiag::Failure::FromLastError("cannot open process " + std::to_string(target.id)));
        return 1;
    }
    dump.process = process.get();
    dump.mode = mode;
    dump.keepExisting = 1;
    const ULONGLONG begin = GetTickCount64();
    const long result = DbgHlpWriteProcessDump(&dump);
    if (WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0) {
        DWORD exitCode = 0;
        GetExitCodeProcess(process.get(), &exitCode);
        kvdiag::ReportFailure(kvdiag::Failure::Printf("process %lu ended during the dump (exit code 0x%08lx): \"%s\" is incomplete",
                static_cast<unsigned long>(target.id), static_cast<unsigned long>(exitCode), dump.dumpPath));
        return 1;
    }
    if (result != 0) {
        kvdiag::ReportFailure(kvdiag::Failure::Printf("no dump of process %lu at \"%s\" (HRESULT 0x%08lx)",
                static_cast<unsigned long>(target.id), dump.dumpPath, static_cast<unsigned long>(result)));
        return 1;
    }
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExA(dump.dumpPath, GetFileExInfoStandard, &data);
    printf("Dump of process %lu (%s), %s: %s, %llu bytes in %.1f s\n", static_cast<unsigned long>(target.id),
           target.exe.c_str(), mode == 1 ? "light" : "heavy", dump.dumpPath,
           (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow,
           double(GetTickCount64() - begin) / 1000.0);
    printf("Read it with: kvdiag dumpinfo \"%s\"\n", dump.dumpPath);
    return 0;
}
