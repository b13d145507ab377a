// DbgHlpWriteProcessDump: a dump of another process written from this one
// (the crash handler, kvdiag dump), with the strengths, names and system-log
// lines of the in-process writer.
#include <string.h>

#include <mutex>

#include "KvCrash.h"
#include "KvCrashHandler.h"
#include "crash/minidump_settings.h"
#include "selfcheck/scoped_handle.h"

namespace {

using kv::selfcheck::ScopedHandle;

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

// DbgHelp is single-threaded: one dump at a time (the files are opened before,
// so that dumps of crashes at the same moment still take different names).
std::mutex dbgHelpLock;

// The strength's flags and filter, applied to the other process.
HRESULT WriteWith(MiniDump& strength, HANDLE process, HANDLE file, MINIDUMP_EXCEPTION_INFORMATION* exception) {
    MINIDUMP_CALLBACK_INFORMATION callback{};
    bool haveCallback = false;
    strength.GetCallbackInfo(callback, haveCallback);
    std::lock_guard<std::mutex> hold(dbgHelpLock);
    // A session that does not load every module's symbols: the dump service
    // would otherwise start one that does, which costs seconds and hundreds of
    // MB (under Wine) and is not needed to write the dump. Never for this
    // process: that would replace the library's own symbol session.
    const bool other = GetProcessId(process) != GetCurrentProcessId();
    const bool session = other && SymInitialize(process, nullptr, FALSE);
    const BOOL written = MiniDumpWriteDump(process, GetProcessId(process), file, strength.GetDumpType(), exception,
                                           nullptr, haveCallback ? &callback : nullptr);
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
    const bool crash = request->exceptionPointers != 0;  // only crashes write system-log lines
    int mode = request->mode < 0 ? settings.mode : request->mode;
    if (mode == 0) {
        if (crash)
            kv::CrashSyslogWrite(settings,
                                 "## EXCEPTION ## - Minidump creation was skipped due to [Debug]MiniDumpType setting.");
        return S_FALSE;
    }
    if (mode == 2) {
        if (crash)
            kv::CrashSyslogWrite(settings, "## EXCEPTION ## - 64 bit process does not support [Debug]MiniDumpType = 2 "
                                           "setting, minidump creation has switched to mode 1.");
        mode = 1;
    }
    if (!request->dumpPath[0]) memcpy(request->dumpPath, settings.dumpPath, sizeof settings.dumpPath);

    HRESULT result = E_ACCESSDENIED;
    ScopedHandle file(request->dumpPath[0] ? OpenDumpFile(request->dumpPath, request->keepExisting != 0) : nullptr);
    if (file.ok()) {
        MINIDUMP_EXCEPTION_INFORMATION exception{};
        exception.ThreadId = request->threadId;
        exception.ExceptionPointers = reinterpret_cast<EXCEPTION_POINTERS*>(request->exceptionPointers);
        exception.ClientPointers = TRUE;  // the pointers are the other process's
        MINIDUMP_EXCEPTION_INFORMATION* withException = crash ? &exception : nullptr;
        if (mode == 1) {
            LightMiniDump strength(nullptr, nullptr);
            result = WriteWith(strength, request->process, file.get(), withException);
        } else {
            HeavyMiniDump strength(nullptr, nullptr);
            result = WriteWith(strength, request->process, file.get(), withException);
        }
    }
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
