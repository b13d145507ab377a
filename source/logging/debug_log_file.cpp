#include "logging/debug_log_file.h"

#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "KvLogging.h"
#include "frame/process_state.h"
#include "logging/cross_process_lock.h"
#include "platform/folder_tree.h"
#include "platform/owned_handle.h"

namespace kv {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// Longest wait for a writer of another process; a holder that is still alive
// after it is stuck (suspended in a debugger, ...), not busy.
constexpr DWORD kLockTimeoutMs = 10000;
// Longest wait of a roller telling the session of its roll (see RollNotice).
constexpr DWORD kMarkTimeoutMs = 1000;
// How often, while lines are written, the file is asked whether it was
// deleted or truncated and its path whether it still names the file. In
// between, the length comes from the state the session's writers share; a
// file deleted, renamed or truncated by anything else is seen at the next
// check, and the lines written to it meanwhile went with it.
constexpr DWORD kCheckMs = 100;

// Not an owner object: the file stays open through the library's detach,
// where the memory report and other modules' last lines may still be written.
HANDLE logFile = INVALID_HANDLE_VALUE;
char openPath[MAX_PATH];
DWORD lastCheck;
bool justOpened;               // the shared state is still to be checked against the file
unsigned linesSinceOpen;       // written since the file was last opened by its path
// Set when the file is closed only to be opened again by path: its index, and
// the lines written to it since it was opened.
unsigned long long recheckIndex;
unsigned recheckLines;
CrossProcessLock writeLock;
unsigned droppedLines;
volatile long long sizeSeen;  // one aligned 64-bit word: read whole by any thread

void CloseLog() {
    if (logFile != INVALID_HANDLE_VALUE) CloseHandle(logFile);  // raw: open through detach (see logFile)
    logFile = INVALID_HANDLE_VALUE;
    sizeSeen = 0;
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
    // The log folder was deleted or renamed while the log was open.
    const char* name = strrchr(path, '\\');
    if (file == INVALID_HANDLE_VALUE && GetLastError() == ERROR_PATH_NOT_FOUND && name) {
        platform::CreateFolderTree(std::string(path, name));
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
    lastCheck = GetTickCount();
    justOpened = true;
    // Reopened to check: another file now means the old one was deleted, with
    // the lines written to it since it was opened - unless it was rolled
    // meanwhile (the lock is still the old file's).
    const SharedFileState* old = writeLock.State();
    if (recheckIndex && FileIndex(logFile) != recheckIndex && !(old && old->roll != SharedFileState::kNotRolled))
        droppedLines += recheckLines;
    recheckIndex = 0;
    linesSinceOpen = 0;
    writeLock.Attach(logFile);
    return true;
}

// Whether path names the open file (not another one, or none).
bool NamesOpenFile(const char* path) {
    const platform::FileHandle byPath(
        CreateFileA(path, FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
    return byPath && FileIndex(byPath.get()) == FileIndex(logFile);
}

// The file's length asked of the file itself, or -1 when it was deleted
// (pending deletion on Windows, unlinked on a Unix host): the lines written
// to it since it was opened went with it.
long long QueriedSize() {
    FILE_STANDARD_INFO info;
    if (!GetFileInformationByHandleEx(logFile, FileStandardInfo, &info, sizeof info)) return -1;
    if (info.DeletePending || info.NumberOfLinks == 0) {
        droppedLines += linesSinceOpen;
        linesSinceOpen = 0;
        return -1;
    }
    return info.EndOfFile.QuadPart;
}

// The open file's length before a write (state: the session's shared state,
// null when the lock is not held); -1 when the file is to be opened again by its
// path: rolled away, deleted, and at each check in any case. A path that
// names another file or none means a roll by another session or a renamed
// folder, and the lines are where they went. A path that still names the open
// file is reopened too: Wine shows a file deleted while open as present until
// its last handle closes, and the new file then opened tells (see OpenLog).
long long SizeBeforeWrite(SharedFileState* state) {
    if (state && state->roll == SharedFileState::kRolled) {
        // A page may outlive its file, and a new file may be given the old
        // one's index: only the path tells whether this one was rolled.
        if (!justOpened || !NamesOpenFile(openPath)) return -1;
        state->roll = state->known = state->foreign = 0;
    }
    const DWORD now = GetTickCount();
    const bool checkDue = now - lastCheck >= kCheckMs;
    if (state && state->known && !state->foreign && !checkDue && !justOpened) return state->size;
    const long long size = QueriedSize();
    if (size < 0) return -1;
    if (state) {
        // Under the lock the session's writers keep the length exact, so a
        // difference found by a check means a writer outside them.
        if (state->known && state->size != size && !justOpened) state->foreign = 1;
        state->size = size;
        state->known = 1;
    }
    justOpened = false;
    if (!checkDue) return size;
    lastCheck = now;
    if (NamesOpenFile(openPath)) {
        recheckIndex = FileIndex(logFile);
        recheckLines = linesSinceOpen;
    }
    return -1;
}

bool WriteAll(const char* bytes, size_t length) {
    DWORD written = 0;
    return length == 0 || (WriteFile(logFile, bytes, DWORD(length), &written, nullptr) && written == length);
}

// A full disk may take part of a write: the fragment is cut off again so the
// next line starts on a line of its own.
void CutBackTo(long long size) {
    const platform::FileHandle writable(ReOpenFile(logFile, GENERIC_WRITE, kShareAll, 0));
    if (!writable) return;
    LARGE_INTEGER end;
    end.QuadPart = size;
    if (SetFilePointerEx(writable.get(), end, nullptr, FILE_BEGIN)) SetEndOfFile(writable.get());
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
    const platform::FileHandle file(OpenCreatingFolders(path));
    if (!file) return;
    CrossProcessLock lock;
    const bool held = lock.Attach(file.get()) && lock.Acquire(kLockTimeoutMs);
    DWORD written = 0;
    const bool whole = WriteFile(file.get(), bytes, DWORD(length), &written, nullptr) && written == length;
    if (held) {
        SharedFileState& state = *lock.State();
        if (whole) state.size += LONG64(length);
        else state.known = 0;
        lock.Release();
    }
}

RollNotice::RollNotice(HANDLE file) {
    if (lock_.Attach(file)) InterlockedExchange(&lock_.State()->roll, SharedFileState::kRolling);
}

void RollNotice::Done(bool moved) {
    if (!lock_.Attached()) return;
    // Set under the lock, so a writer that finds it clear on a file it has
    // just opened by path knows the roll came after its open. A lock held
    // longer is stuck: the mark matters more than that race.
    const bool held = lock_.Acquire(kMarkTimeoutMs);
    lock_.State()->roll = moved ? SharedFileState::kRolled : SharedFileState::kNotRolled;
    if (held) lock_.Release();
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
        SharedFileState* const state = held ? writeLock.State() : nullptr;
        const long long before = SizeBeforeWrite(state);
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
            linesSinceOpen += result.taken == length ? lines : unsigned(std::count(bytes, bytes + result.taken, '\n'));
            // Unknown when the file was found gone or rolled on a second try.
            if (before >= 0) after = before + static_cast<long long>(noteLength + result.taken);
            sizeSeen = after < 0 ? 0 : after;
        }
        if (state) {
            state->size = after;
            state->known = after >= 0;
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
