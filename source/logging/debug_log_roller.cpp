// Rolling the debug log: the oldest history file goes, the others move up one
// number and the live file becomes history file 1.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include "KvLogging.h"
#include "frame/process_state.h"
#include "logging/debug_log.h"
#include "logging/debug_log_file.h"
#include "logging/roll_claim.h"
#include "platform/owned_handle.h"

namespace kv {

namespace {

constexpr int kMaxHistory = 10;
constexpr char kHoleText[] = "This file was either deleted or moved";

// Keeps the chain without holes: a missing history file is replaced by a note.
void WriteHoleNote(const char* path) {
    const platform::FileHandle file(CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return;
    DWORD written;
    WriteFile(file.get(), kHoleText, DWORD(sizeof kHoleText - 1), &written, nullptr);
}

// history[i]: the path of history file i (index 0 is the live file). True
// when the live file left its name.
bool MoveChain(char (*history)[MAX_PATH], int count) {
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
    return (count != 0 && MoveFileA(history[0], history[1])) || DeleteFileA(history[0]);
}

}  // namespace

// Set while a thread of this process rolls: a second one has nothing to do
// (the claim alone may not tell threads of one process apart everywhere).
static volatile LONG rollingHere;

void RollDebugLog() {
    const int count = Settings.debugLogHistoryFiles < 0 ? 0
                      : Settings.debugLogHistoryFiles > kMaxHistory ? kMaxHistory
                                                                    : Settings.debugLogHistoryFiles;
    // Composed before anything is claimed: the folder lookup takes the
    // configuration's own locks. Zero-filled as the path functions expect.
    char history[kMaxHistory + 1][MAX_PATH];
    memset(history, 0, sizeof history);
    for (int i = 0; i <= count; ++i)
        if (GetDebugLogFilePath(i, 1, history[i], MAX_PATH - 1) <= 0) return;

    if (InterlockedExchange(&rollingHere, 1)) return;
    {
        // Whoever holds the claim rolls; a second roller that checked the size
        // before the first moved the file would otherwise move or delete the
        // fresh live file. Writers go on meanwhile: each writes to the file its
        // handle names, and a line that lands in a file just rolled stays whole
        // in the history.
        RollClaim claim(history[0]);
        if (claim.held() && claim.size() >= Settings.debugLogSize) {
            RollNotice notice(claim.file());
            notice.Done(MoveChain(history, count));
        }
    }
    InterlockedExchange(&rollingHere, 0);
}

}  // namespace kv
