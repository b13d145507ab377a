#include "logging/debug_log_file.h"

#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "KvLogging.h"
#include "frame/process_state.h"
#include "logging/cross_process_lock.h"

namespace kv {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// Longest wait for a writer of another process; a holder that is still alive
// after it is stuck (suspended in a debugger, ...), not busy.
constexpr DWORD kLockTimeoutMs = 10000;
// How often the path is checked to still name the open file: cheap checks on
// the handle catch a deleted file at once, a renamed folder only by its path.
constexpr DWORD kPathCheckMs = 1000;

HANDLE logFile = INVALID_HANDLE_VALUE;
char openPath[MAX_PATH];
DWORD lastPathCheck;
unsigned linesSincePathCheck;  // written since the file was last opened by its path
// Set when the file is closed only to be opened again by path: its index, and
// the lines written to it since it was opened.
unsigned long long recheckIndex;
unsigned recheckLines;
CrossProcessLock writeLock;
unsigned droppedLines;
volatile long long sizeSeen;  // one aligned 64-bit word: read whole by any thread

void CloseLog() {
    if (logFile != INVALID_HANDLE_VALUE) CloseHandle(logFile);
    logFile = INVALID_HANDLE_VALUE;
    sizeSeen = 0;
}

// Creates the folders of path that are missing (the log folder was deleted or
// renamed while the log was open).
void CreateParentFolders(const char* path) {
    char folder[MAX_PATH];
    strncpy(folder, path, sizeof folder - 1);
    folder[sizeof folder - 1] = '\0';
    char* last = strrchr(folder, '\\');
    if (!last) return;
    *last = '\0';
    for (char* p = strchr(folder, '\\'); p; p = strchr(p + 1, '\\')) {
        *p = '\0';
        CreateDirectoryA(folder, nullptr);
        *p = '\\';
    }
    CreateDirectoryA(folder, nullptr);
}

HANDLE OpenAppendOnly(const char* path) {
    // FILE_APPEND_DATA without FILE_WRITE_DATA: Windows places every write at
    // the current end of file, atomically against all other appenders. Null
    // security attributes keep the handle out of child processes; delete
    // sharing lets any process roll the file while others hold it.
    return CreateFileA(path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE, kShareAll, nullptr,
                       OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

HANDLE OpenCreatingFolders(const char* path) {
    HANDLE file = OpenAppendOnly(path);
    if (file == INVALID_HANDLE_VALUE && GetLastError() == ERROR_PATH_NOT_FOUND) {
        CreateParentFolders(path);
        file = OpenAppendOnly(path);
    }
    return file;
}

unsigned long long FileIndex(HANDLE file) {
    BY_HANDLE_FILE_INFORMATION info;
    if (!GetFileInformationByHandle(file, &info)) return 0;
    return (static_cast<unsigned long long>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
}

bool OpenLog(const char* path) {
    CloseLog();
    logFile = OpenCreatingFolders(path);
    if (logFile == INVALID_HANDLE_VALUE) return false;
    strncpy(openPath, path, sizeof openPath - 1);
    lastPathCheck = GetTickCount();
    // Reopened to check: another file now means the old one was deleted, with
    // the lines written to it since it was opened.
    if (recheckIndex && FileIndex(logFile) != recheckIndex) droppedLines += recheckLines;
    recheckIndex = 0;
    linesSincePathCheck = 0;
    writeLock.Attach(logFile);
    return true;
}

// Whether path names the open file (not another one, or none).
bool NamesOpenFile(const char* path) {
    const HANDLE byPath = CreateFileA(path, FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    if (byPath == INVALID_HANDLE_VALUE) return false;
    const bool same = FileIndex(byPath) == FileIndex(logFile);
    CloseHandle(byPath);
    return same;
}

// The open file's size, or -1 when it is to be opened again by its path:
// deleted (pending deletion on Windows, unlinked on a Unix host), and once a
// second in any case. A path that names another file or none means a roll by
// another process or a renamed folder, and the lines are where they went.
// A path that still names the open file is reopened too: Wine shows a file
// deleted while open as present until its last handle closes, and the new
// file then opened tells (see OpenLog).
long long LiveSize() {
    FILE_STANDARD_INFO info;
    if (!GetFileInformationByHandleEx(logFile, FileStandardInfo, &info, sizeof info) || info.DeletePending ||
        info.NumberOfLinks == 0)
        return -1;
    const DWORD now = GetTickCount();
    if (now - lastPathCheck >= kPathCheckMs) {
        lastPathCheck = now;
        if (NamesOpenFile(openPath)) {
            recheckIndex = FileIndex(logFile);
            recheckLines = linesSincePathCheck;
        }
        return -1;
    }
    return info.EndOfFile.QuadPart;
}

bool WriteAll(const char* bytes, size_t length) {
    DWORD written = 0;
    return length == 0 || (WriteFile(logFile, bytes, DWORD(length), &written, nullptr) && written == length);
}

// A full disk may take part of a write: the fragment is cut off again so the
// next line starts on a line of its own.
void CutBackTo(long long size) {
    const HANDLE writable = ReOpenFile(logFile, GENERIC_WRITE, kShareAll, 0);
    if (writable == INVALID_HANDLE_VALUE) return;
    LARGE_INTEGER end;
    end.QuadPart = size;
    if (SetFilePointerEx(writable, end, nullptr, FILE_BEGIN)) SetEndOfFile(writable);
    CloseHandle(writable);
}

// The line that reports lines lost before it; stays within a stack buffer.
size_t DroppedNote(char (&note)[128]) {
    uint32_t stamp = 0;
    GetDateTimeString(note, &stamp);
    const int length = snprintf(note + stamp, sizeof note - stamp, " %u debug log lines could not be written\r\n",
                                droppedLines);
    return length > 0 ? stamp + size_t(length) : 0;
}

}  // namespace

long long DebugLogSizeSeen() { return sizeSeen; }

void WriteToLogDirectly(const char* path, const char* bytes, size_t length) {
    const HANDLE file = OpenCreatingFolders(path);
    if (file == INVALID_HANDLE_VALUE) return;
    CrossProcessLock lock;
    const bool held = lock.Attach(file) && lock.Acquire(kLockTimeoutMs);
    DWORD written;
    WriteFile(file, bytes, DWORD(length), &written, nullptr);
    if (held) lock.Release();
    CloseHandle(file);
}

BatchResult WriteBatchToLog(const char* livePath, const char* bytes, size_t length, unsigned lines, bool split) {
    BatchResult result;
    result.taken = length;  // unless the file fills in the middle
    const long long limit = static_cast<long long>(Settings.debugLogSize);
    for (int attempt = 0;; ++attempt) {
        if (logFile == INVALID_HANDLE_VALUE && !OpenLog(livePath)) {
            // Not openable (folder not creatable, file held without sharing):
            // counted like any line lost; the next write composes the path
            // and tries again.
            droppedLines += lines;
            result.forgetPath = true;
            return result;
        }
        const bool held = writeLock.Acquire(kLockTimeoutMs);
        if (!held && writeLock.Attached()) {
            droppedLines += lines;
            return result;
        }
        const long long before = LiveSize();
        // Deleted, renamed away or rolled by another process: reopen by path once.
        if ((before < 0 || before >= limit) && attempt == 0) {
            if (held) writeLock.Release();
            CloseLog();
            continue;
        }
        char note[128];
        const size_t noteLength = droppedLines ? DroppedNote(note) : 0;
        // The file takes lines up to the one that reaches its limit; the rest
        // goes to the next live file, so no history file exceeds the limit by
        // more than a line.
        const size_t room = before >= 0 && before + static_cast<long long>(noteLength) < limit
                                ? size_t(limit - before - static_cast<long long>(noteLength))
                                : 0;
        // At least one line, so a batch moves on even when a roll fails.
        if (split && length > room) {
            const size_t from = room ? room - 1 : 0;
            const void* end = memchr(bytes + from, '\n', length - from);
            result.taken = end ? size_t(static_cast<const char*>(end) - bytes) + 1 : length;
        }
        const bool written = WriteAll(note, noteLength) && WriteAll(bytes, result.taken);
        long long after = -1;
        if (!written) {
            if (before >= 0) CutBackTo(before);
            droppedLines += lines;
            result.taken = length;
        } else {
            droppedLines = 0;
            linesSincePathCheck +=
                result.taken == length ? lines : unsigned(std::count(bytes, bytes + result.taken, '\n'));
            after = before + static_cast<long long>(noteLength + result.taken);
            sizeSeen = after;
        }
        if (held) writeLock.Release();
        // A failed write closes the file (the next batch reopens it); a full
        // one is closed here so no thread writes to it while it is rolled.
        if (!written || after >= limit) {
            CloseLog();
            result.roll = written;
        }
        return result;
    }
}

}  // namespace kv
