// kvdiag crashtest: a child process crashes on purpose with GenerateMiniDump
// as its unhandled-exception filter; the parent reports the dump and the new
// system-log lines. Both work in a scratch copy of the installation.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "KvDebugHelp.h"
#include "command.h"
#include "common/console_text.h"
#include "dump/dump_reader.h"
#include "commands/ini_status.h"
#include "commands/scratch_install.h"
#include "platform/error_text.h"
#include "platform/module_path.h"
#include "platform/owned_handle.h"

namespace {

const char kChildFlag[] = "--crash-child";
// A full-memory dump written in-process under Wine takes a minute or more
// (DbgHelp first loads every module's symbols); a light one seconds.
const DWORD kChildTimeoutMs = 60000;
const DWORD kHeavyChildTimeoutMs = 300000;

LONG WINAPI DumpingFilter(EXCEPTION_POINTERS* pointers) {
    GenerateMiniDump(pointers);
    return EXCEPTION_EXECUTE_HANDLER;
}

int CrashChild(const char* ini) {
    const kvdiag::IniStatus status = kvdiag::ValidateProductIni(ini);
    if (!status.valid) {
        fprintf(stderr, "child: %s\n", status.reason.c_str());
        return 3;
    }
    SetUnhandledExceptionFilter(DumpingFilter);
    int* volatile target = reinterpret_cast<int*>(0x10);
    *target = 1;  // access violation, handled by the filter above
    return 0;
}

uint64_t FileSize(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data)) return 0;
    return (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

// The text written to a log after offset, each line indented. A log not
// made at all has no new lines: a dump written as configured adds no line to
// the system log, only a fallback or a failure does.
void PrintNewLines(const char* title, const std::string& path, uint64_t offset) {
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) {
        printf("%s (%s): no new lines%s\n", title, path.c_str(),
               strcmp(title, "System log") ? "" : " (a dump written as configured adds none)");
        return;
    }
    _fseeki64(file, static_cast<long long>(offset), SEEK_SET);
    printf("%s (%s), new lines:\n", title, path.c_str());
    char line[1100];
    bool any = false;
    while (fgets(line, sizeof line, file)) {
        line[strcspn(line, "\r\n")] = '\0';
        kvdiag::PrintLine(line, "    ");
        any = true;
    }
    if (!any) printf("    (none%s)\n", strcmp(title, "System log") ? "" : ": a dump written as configured adds none");
    fclose(file);
}

// Runs this program as the crashing child; returns its exit code (or
// STILL_ACTIVE when it had to be ended after the timeout).
DWORD RunChild(const char* ini, DWORD timeoutMs) {
    std::string commandLine = "\"" + kv::platform::ModulePath(nullptr) + "\" crashtest " + kChildFlag;
    if (ini) commandLine += std::string(" --ini \"") + ini + "\"";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
        kvdiag::ReportFailure(kvdiag::Failure::FromLastError("cannot start the child"));
        return 1;
    }
    const kv::platform::KernelHandle child(process.hProcess), thread(process.hThread);
    printf("Child process %lu started; it crashes with an access violation\n", process.dwProcessId);
    DWORD code = STILL_ACTIVE;
    if (WaitForSingleObject(process.hProcess, timeoutMs) == WAIT_TIMEOUT) {
        printf("Child still running after %lu s (HangProcessIfDumpFailed keeps it for a debugger): ended now\n",
               timeoutMs / 1000);
        TerminateProcess(process.hProcess, 1);
        WaitForSingleObject(process.hProcess, 5000);
    } else {
        GetExitCodeProcess(process.hProcess, &code);
    }
    return code;
}

// Throws a KvException caused by another, catches it and shows what the
// library logged for the pair.
int ThrowChainedException() {
    char debugLog[MAX_PATH] = "";
    GetDebugLogFilePath(-1, 1, debugLog, sizeof debugLog);
    char syslogPath[MAX_PATH] = "";
    GetSyslogFilePath(1, 0, syslogPath, sizeof syslogPath);
    const uint64_t debugBefore = FileSize(debugLog);
    const uint64_t syslogBefore = FileSize(syslogPath);
    try {
        try {
            throw KvException(0x80070002, "recipe file missing", nullptr, "recipe_loader.cpp", 41);
        } catch (const KvException& cause) {
            throw KvException(0x80004005, "batch start failed", &cause, "batch_starter.cpp", 120);
        }
    } catch (const KvException& caught) {
        printf("Caught KvException 0x%08lx \"%s\" (%s:%d)\n", static_cast<unsigned long>(caught.getHResult()),
               caught.getDescription().c_str(), caught.getFileName().c_str(), caught.getLineNumber());
        for (const KvException* cause = caught.getLastException(); cause; cause = cause->getLastException())
            printf("  caused by 0x%08lx \"%s\" (%s:%d)\n", static_cast<unsigned long>(cause->getHResult()),
                   cause->getDescription().c_str(), cause->getFileName().c_str(), cause->getLineNumber());
    }
    printf("KvException objects still alive: %ld\n", KvExceptionGetLiveCount());
    PrintNewLines("Debug log", debugLog, debugBefore);
    PrintNewLines("System log", syslogPath, syslogBefore);
    return KvExceptionGetLiveCount() == 0 ? 0 : 1;
}

}  // namespace

KVDIAG_COMMAND(crashtest, "[light|heavy|exception]",
               "crash a child on purpose and report its minidump and system-log lines; "
               "exception: throw a chained KvException and show its log lines",
               {"light", nullptr, "the child writes a light dump (threads, stacks, modules)"},
               {"heavy", nullptr, "the child writes a full-memory dump"},
               {"exception", nullptr, "throw a chained KvException instead of crashing"},
               kvdiag::kIniOption) {
    const char* ini = kvdiag::TakeIniOption(argc, argv);
    if (argc == 1 && !strcmp(argv[0], kChildFlag)) return CrashChild(ini);
    const char* type = nullptr;
    const bool exception = argc == 1 && !_stricmp(argv[0], "exception");
    if (argc == 1 && !_stricmp(argv[0], "light")) type = "1";
    else if (argc == 1 && !_stricmp(argv[0], "heavy")) type = "3";
    else if (argc != 0 && !exception) return kvdiag::UsageError();
    const kvdiag::IniStatus status = kvdiag::ValidateProductIni(ini);
    if (!status.valid) {
        kvdiag::ReportFailure(kvdiag::Failure("No usable product INI file: " + status.reason));
        return 1;
    }
    // Everything below happens in a copy: the plant's INI file, dumps and
    // logs are never written, whatever becomes of this process.
    const std::string scratchIni = kvdiag::UseScratchInstall(status.path, "crashtest", "Debug", "MiniDumpType", type);
    if (scratchIni.empty()) return 1;
    if (exception) return ThrowChainedException();

    char dumpPath[MAX_PATH] = "";
    GetMemoryDumpPath(1, dumpPath, sizeof dumpPath);
    char syslogPath[MAX_PATH] = "";
    GetSyslogFilePath(1, 0, syslogPath, sizeof syslogPath);
    const uint64_t syslogBefore = FileSize(syslogPath);
    printf("Crash test with [Debug]MiniDumpType=%d\n",
           GetPrivateProfileIntA("Debug", "MiniDumpType", 3, scratchIni.c_str()));
    const bool heavy = GetPrivateProfileIntA("Debug", "MiniDumpType", 3, scratchIni.c_str()) == 3;
    const DWORD exitCode = RunChild(scratchIni.c_str(), heavy ? kHeavyChildTimeoutMs : kChildTimeoutMs);
    printf("Child ended with 0x%08lx\n", exitCode);

    kvdiag::MappedDump dump(dumpPath);
    bool good = false;
    if (!dump.opened()) {
        printf("Dump: none at %s\n", dumpPath);
    } else {
        const auto* exception = dump.Stream<MINIDUMP_EXCEPTION_STREAM>(ExceptionStream);
        printf("Dump: %s, %llu bytes", dumpPath, static_cast<unsigned long long>(dump.size()));
        if (exception) {
            printf(", exception 0x%08lx in thread %lu", static_cast<unsigned long>(exception->ExceptionRecord.ExceptionCode),
                   static_cast<unsigned long>(exception->ThreadId));
            good = exception->ExceptionRecord.ExceptionCode == EXCEPTION_ACCESS_VIOLATION;
        }
        printf("%s\n", dump.FullMemory().ranges.count ? ", full memory" : "");
        printf("      (kvdiag dumpinfo \"%s\" shows the rest)\n", dumpPath);
    }
    PrintNewLines("System log", syslogPath, syslogBefore);
    return good ? 0 : 1;
}
