// Rolling the debug log: the oldest history file goes, the others move up one
// number and the live file becomes history file 1.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include "KvLogging.h"
#include "frame/process_state.h"
#include "logging/cross_process_lock.h"
#include "logging/debug_log.h"

namespace kv {

namespace {

constexpr int kMaxHistory = 10;
constexpr char kHoleText[] = "This file was either deleted or moved";

class HandleHolder {
public:
    explicit HandleHolder(HANDLE h) : h_(h) {}
    ~HandleHolder() {
        if (h_) CloseHandle(h_);
    }
    HandleHolder(const HandleHolder&) = delete;
    HandleHolder& operator=(const HandleHolder&) = delete;
    HANDLE get() const { return h_; }

private:
    HANDLE h_;
};

bool FileSize(const char* path, unsigned long long& size) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExA(path, GetFileExInfoStandard, &data)) return false;
    size = (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    return true;
}

// Keeps the chain without holes: a missing history file is replaced by a note.
void WriteHoleNote(const char* path) {
    HandleHolder file(CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.get() == INVALID_HANDLE_VALUE) return;
    DWORD written;
    WriteFile(file.get(), kHoleText, DWORD(sizeof kHoleText - 1), &written, nullptr);
}

// history[i]: the path of history file i (index 0 is the live file).
void MoveChain(char (*history)[MAX_PATH], int count) {
    bool slotFree = DeleteFileA(history[count]) != 0;
    int target = count;
    for (int source = count - 1; source >= 1; --source) {
        if (MoveFileA(history[source], history[target])) {
            slotFree = true;
        } else if (GetLastError() == ERROR_FILE_NOT_FOUND && slotFree) {
            WriteHoleNote(history[target]);
        }
        target = source;
    }
    if (count == 0 || !MoveFileA(history[0], history[1])) DeleteFileA(history[0]);
}

}  // namespace

void RollDebugLog() {
    const int count = Settings.debugLogHistoryFiles < 0 ? 0
                      : Settings.debugLogHistoryFiles > kMaxHistory ? kMaxHistory
                                                                    : Settings.debugLogHistoryFiles;
    // Composed before taking DebugLogLock (see the writer); zero-filled as the
    // path functions expect.
    char history[kMaxHistory + 1][MAX_PATH];
    memset(history, 0, sizeof history);
    for (int i = 0; i <= count; ++i)
        if (GetDebugLogFilePath(i, 1, history[i], MAX_PATH - 1) <= 0) return;

    if (!LocksReady) return;
    // Processes sharing the log roll it one at a time, and nobody writes
    // meanwhile: a second roller that checked the size before the first moved
    // the file would otherwise move or delete the fresh live file.
    CrossProcessLock fileLock;
    if (!fileLock.Attach(history[0])) return;
    EnterCriticalSection(&DebugLogLock);
    {
        CrossProcessHold hold(fileLock);
        unsigned long long size = 0;
        if (hold.held() && FileSize(history[0], size) && size >= Settings.debugLogSize) MoveChain(history, count);
    }
    LeaveCriticalSection(&DebugLogLock);
}

}  // namespace kv
