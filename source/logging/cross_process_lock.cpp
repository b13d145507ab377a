#include "logging/cross_process_lock.h"

#include <stdio.h>

#include "frame/process_state.h"

namespace kv {

namespace {

constexpr DWORD kOwnerCheckMs = 250;

// Volume serial numbers differ between two drive letters of one folder (Wine
// maps C: and Z: onto one file system), so the file index alone names the lock;
// two files of different volumes sharing one lock only wait for each other.
bool FileKey(HANDLE file, unsigned long long& key) {
    BY_HANDLE_FILE_INFORMATION info;
    if (!GetFileInformationByHandle(file, &info)) return false;
    key = (static_cast<unsigned long long>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
    return true;
}

// A process's id in the low half (where a lock word of a process id alone
// has it), its start time folded into the high half.
LONG64 TokenOf(DWORD pid, HANDLE process) {
    FILETIME created, exited, kernel, user;
    if (!GetProcessTimes(process, &created, &exited, &kernel, &user)) return 0;
    const unsigned long long stamp = created.dwLowDateTime ^ created.dwHighDateTime;
    return LONG64((stamp << 32) | pid);
}

// Never 0, which means free.
LONG64 OwnToken() {
    static const LONG64 token = [] {
        const DWORD pid = GetCurrentProcessId();
        const LONG64 made = TokenOf(pid, GetCurrentProcess());
        return made ? made : LONG64(pid);
    }();
    return token;
}

// True when the holder named by token is gone: its process ended, or its id
// now names a later process.
bool OwnerEnded(LONG64 token) {
    const DWORD pid = DWORD(static_cast<unsigned long long>(token) & 0xFFFFFFFFu);
    const platform::KernelHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, pid));
    if (!process) return GetLastError() == ERROR_INVALID_PARAMETER;  // no such process
    const LONG64 now = TokenOf(pid, process.get());  // 0: not readable, taken as the same process
    return WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0 || (now && now != token);
}

}  // namespace

bool CrossProcessLock::Attach(HANDLE file) {
    unsigned long long key;
    if (!FileKey(file, key)) return false;
    if (shared_ && key == key_) return true;
    Detach();
    char name[64];
    snprintf(name, sizeof name, "Local\\KvDebugHelp.LogLock.%016llx", key);
    mapping_.reset(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, name));
    snprintf(name, sizeof name, "Local\\KvDebugHelp.LogWake.%016llx", key);
    wake_.reset(CreateEventA(nullptr, FALSE, FALSE, name));
    if (mapping_ && wake_)
        shared_ = static_cast<Shared*>(MapViewOfFile(mapping_.get(), FILE_MAP_WRITE, 0, 0, sizeof(Shared)));
    if (!shared_) {
        Detach();
        return false;
    }
    key_ = key;
    return true;
}

void CrossProcessLock::Detach() {
    if (shared_) UnmapViewOfFile(shared_);
    mapping_.reset();
    wake_.reset();
    shared_ = nullptr;
    key_ = 0;
}

bool CrossProcessLock::TakeFree() {
    return InterlockedCompareExchange64(&shared_->owner, OwnToken(), 0) == 0;
}

// A holder killed while writing never releases; its token tells. So does this
// process's own token once it is ending: the holder was one of its threads,
// ended by ExitProcess.
bool CrossProcessLock::TakeFromEndedOwner() {
    const LONG64 owner = shared_->owner;
    const bool mine = owner == OwnToken();
    if (!owner || !(mine ? ProcessEnding() : OwnerEnded(owner)) ||
        InterlockedCompareExchange64(&shared_->owner, OwnToken(), owner) != owner)
        return false;
    shared_->file.known = 0;
    return true;
}

bool CrossProcessLock::Acquire(DWORD timeoutMs) {
    if (!shared_) return false;
    if (TakeFree()) return stuck_ = false, true;
    // Another process holds it for one write of some microseconds: spinning
    // a little is cheaper than sleeping.
    for (int spin = 0; spin < 200; ++spin) {
        YieldProcessor();
        if (shared_->owner == 0 && TakeFree()) return stuck_ = false, true;
    }
    if (stuck_) timeoutMs = 0;
    const DWORD start = GetTickCount();
    for (;;) {
        InterlockedIncrement(&shared_->waiters);
        // Counted before the last try, so a release after it sets the event.
        bool taken = TakeFree();
        const DWORD waited = GetTickCount() - start;
        if (!taken && waited < timeoutMs) {
            const DWORD slice = timeoutMs - waited < kOwnerCheckMs ? timeoutMs - waited : kOwnerCheckMs;
            taken = WaitForSingleObject(wake_.get(), slice) == WAIT_OBJECT_0 && TakeFree();
        }
        InterlockedDecrement(&shared_->waiters);
        if (taken || TakeFree() || TakeFromEndedOwner()) return stuck_ = false, true;
        if (GetTickCount() - start >= timeoutMs) {
            stuck_ = true;
            return false;
        }
    }
}

void CrossProcessLock::Release() {
    if (!shared_) return;
    InterlockedExchange64(&shared_->owner, 0);
    if (shared_->waiters > 0) SetEvent(wake_.get());
}

}  // namespace kv
