// DbgHlpWriteProcessDump: a dump of another process written from this one
// (the crash handler, kvdiag dump), with the strengths, names and system-log
// lines of the in-process writer; hang dumps (no exception) take names of
// their own.
#include <string.h>

#include <mutex>

#include "KvCrash.h"
#include "KvCrashHandler.h"
#include "crash/minidump_settings.h"
#include "platform/owned_handle.h"

namespace {

using kv::platform::FileHandle;

constexpr int kMostNumbers = 99;

// path with ".n" before its extension: user.dmp -> user.2.dmp.
bool NumberedPath(const char* path, int n, char (&out)[MAX_PATH]) {
    const char* dot = strrchr(path, '.');
    const char* slash = strrchr(path, '\\');
    if (!dot || (slash && dot < slash)) dot = path + strlen(path);
    const int length = snprintf(out, sizeof out, "%.*s.%d%s", static_cast<int>(dot - path), path, n, dot);
    return length > 0 && size_t(length) < sizeof out;
}

// The dump file: the name itself, replaced as a crash dump is (or kept when
// keepExisting); while another writer holds it, or it must be kept, the next
// numbered name. path receives the name used.
HANDLE OpenDumpFile(char (&path)[MAX_PATH], bool keepExisting) {
    char candidate[MAX_PATH];
    memcpy(candidate, path, sizeof candidate);
    for (int n = 1; n <= kMostNumbers; ++n) {
        if (n > 1 && !NumberedPath(path, n, candidate)) break;
        HANDLE file = CreateFileA(candidate, GENERIC_WRITE, 0, nullptr, keepExisting ? CREATE_NEW : CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL | FILE_FLAG_WRITE_THROUGH, nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            memcpy(path, candidate, sizeof candidate);
            return file;
        }
        const DWORD error = GetLastError();
        if (error != ERROR_SHARING_VIOLATION && error != ERROR_FILE_EXISTS && error != ERROR_ALREADY_EXISTS) break;
    }
    return INVALID_HANDLE_VALUE;
}

// "<name>.<pid>.<yyyymmdd-hhmmss>.hang.dmp" in the log folder of iniPath, name
// being the component or else the program without ".exe"; false when there
// is no folder or the name does not fit.
bool HangDumpPath(HANDLE process, const char* iniPath, const char* componentName, char (&path)[MAX_PATH]) {
    kv::DumpSettings unnamed;  // the folder, whatever the component name holds
    kv::ReadDumpSettingsOf(iniPath, nullptr, unnamed);
    const char* slash = strrchr(unnamed.dumpPath, '\\');
    if (!slash) return false;
    char program[MAX_PATH] = "";
    DWORD size = sizeof program;
    // A name that could climb out of the folder is no name.
    if (componentName && (strpbrk(componentName, "\\/:") || strstr(componentName, ".."))) componentName = nullptr;
    if (!componentName || !*componentName) {
        if (!QueryFullProcessImageNameA(process, 0, program, &size)) snprintf(program, sizeof program, "process");
        char* base = strrchr(program, '\\');
        if (base) memmove(program, base + 1, strlen(base + 1) + 1);
        char* extension = strrchr(program, '.');
        if (extension && !_stricmp(extension, ".exe")) *extension = 0;
        componentName = program;
    }
    SYSTEMTIME now;
    GetLocalTime(&now);
    const int n = snprintf(path, sizeof path, "%.*s\\%s.%lu.%04u%02u%02u-%02u%02u%02u.hang.dmp",
                           static_cast<int>(slash - unnamed.dumpPath), unnamed.dumpPath, componentName,
                           static_cast<unsigned long>(GetProcessId(process)), now.wYear, now.wMonth, now.wDay,
                           now.wHour, now.wMinute, now.wSecond);
    return n > 0 && size_t(n) < sizeof path;
}

// The light strength from outside: no memory beyond the stacks and what they
// point to, but every module and thread kept. The in-process light filter
// drops modules no captured memory refers to, and Wine marks none as referred
// to: its light dumps list no modules and no stack can be walked.
BOOL CALLBACK KeepModulesAndThreads(PVOID, const PMINIDUMP_CALLBACK_INPUT input, PMINIDUMP_CALLBACK_OUTPUT output) {
    if (!input || !output) return FALSE;
    switch (input->CallbackType) {
        case ModuleCallback:
        case ThreadCallback:
        case ThreadExCallback:
        case IncludeThreadCallback:
        case IncludeModuleCallback: return TRUE;
        default: return FALSE;
    }
}

// DbgHelp is single-threaded: one dump at a time (the files are opened before,
// so that dumps of crashes at the same moment still take different names).
std::mutex dbgHelpLock;

// Mode 1 or 3, applied to the other process.
HRESULT WriteWith(int mode, HANDLE process, HANDLE file, MINIDUMP_EXCEPTION_INFORMATION* exception) {
    HeavyMiniDump heavy(nullptr, nullptr);
    const MINIDUMP_TYPE type =
        mode == 1 ? static_cast<MINIDUMP_TYPE>(MiniDumpScanMemory | MiniDumpWithIndirectlyReferencedMemory |
                                               MiniDumpWithThreadInfo | MiniDumpWithUnloadedModules)
                  : heavy.GetDumpType();
    MINIDUMP_CALLBACK_INFORMATION callback{KeepModulesAndThreads, nullptr};
    std::lock_guard<std::mutex> hold(dbgHelpLock);
    // A session that does not load every module's symbols: the dump service
    // would otherwise start one that does, which costs seconds and hundreds of
    // MB (under Wine) and is not needed to write the dump. Never for this
    // process: that would replace the library's own symbol session.
    const bool other = GetProcessId(process) != GetCurrentProcessId();
    const bool session = other && SymInitialize(process, nullptr, FALSE);
    const BOOL written = MiniDumpWriteDump(process, GetProcessId(process), file, type, exception, nullptr,
                                           mode == 1 ? &callback : nullptr);
    if (session) SymCleanup(process);
    return written ? S_OK : E_FAIL;
}

}  // namespace

extern "C" long DbgHlpWriteProcessDump(KvProcessDump* request) {
    if (!request || !request->process) return E_INVALIDARG;
    request->dumpPath[MAX_PATH - 1] = 0;
    request->hang = 0;
    kv::DumpSettings settings;
    kv::ReadDumpSettingsOf(request->iniPath, request->componentName, settings);
    const bool crash = request->exceptionPointers != 0;  // only crashes and hangs write system-log lines
    const char* hangNote = crash ? nullptr : request->hangNote;
    int mode = request->mode < 0 ? settings.mode : request->mode;
    if (mode == 0) {
        if (crash)
            kv::CrashSyslogWrite(settings,
                                 "## EXCEPTION ## - Minidump creation was skipped due to [Debug]MiniDumpType setting.");
        if (hangNote)
            kv::CrashSyslogWrite(settings, "## HANG ## - %s; no hang dump ([Debug]MiniDumpType=0).", hangNote);
        return S_FALSE;
    }
    if (mode == 2) {
        if (crash)
            kv::CrashSyslogWrite(settings, "## EXCEPTION ## - 64 bit process does not support [Debug]MiniDumpType = 2 "
                                           "setting, minidump creation has switched to mode 1.");
        mode = 1;
    }
    bool keepExisting = request->keepExisting != 0;
    if (!request->dumpPath[0] && !crash) {
        keepExisting = true;
        if (!HangDumpPath(request->process, request->iniPath, request->componentName, request->dumpPath))
            request->dumpPath[0] = 0;
    } else if (!request->dumpPath[0]) {
        memcpy(request->dumpPath, settings.dumpPath, sizeof settings.dumpPath);
    }

    HRESULT result = E_ACCESSDENIED;
    FileHandle file(request->dumpPath[0] ? OpenDumpFile(request->dumpPath, keepExisting) : INVALID_HANDLE_VALUE);
    if (file) {
        MINIDUMP_EXCEPTION_INFORMATION exception{};
        exception.ThreadId = request->threadId;
        exception.ExceptionPointers = reinterpret_cast<EXCEPTION_POINTERS*>(request->exceptionPointers);
        exception.ClientPointers = TRUE;  // the pointers are the other process's
        MINIDUMP_EXCEPTION_INFORMATION* withException = crash ? &exception : nullptr;
        result = WriteWith(mode, request->process, file.get(), withException);
    }
    if (hangNote && result == S_OK)
        kv::CrashSyslogWrite(settings, "## HANG ## - %s; hang dump \"%s\".", hangNote, request->dumpPath);
    else if (hangNote)
        kv::CrashSyslogWrite(settings, "## HANG ## - %s; the hang dump could not be written at \"%s\" (HRESULT 0x%x).",
                             hangNote, request->dumpPath, static_cast<unsigned>(result));
    LONG waiting = 0;
    if (crash && request->waitingThread &&
        ReadProcessMemory(request->process, reinterpret_cast<const void*>(request->waitingThread), &waiting,
                          sizeof waiting, nullptr) &&
        waiting != 0)
        kv::CrashSyslogWrite(settings, "## EXCEPTION ## - Thread %lu crashed while the minidump of thread %lu was "
                                       "written; it waited for that dump.",
                             static_cast<unsigned long>(waiting), static_cast<unsigned long>(request->threadId));
    if (result != S_OK && crash) {
        kv::CrashSyslogWrite(settings, "## EXCEPTION ## - Minidump could not be created at \"%s\". DumpType=0x%x, HRESULT=0x%x",
                             request->dumpPath, static_cast<unsigned>(mode), static_cast<unsigned>(result));
        request->hang = settings.hang ? 1 : 0;
    }
    return result;
}
