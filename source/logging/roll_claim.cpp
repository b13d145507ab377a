#include "logging/roll_claim.h"

namespace kv {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE OpenForClaim(const char* path) {
    // Locking needs read or write access; read disturbs nobody.
    return CreateFileA(path, GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

bool SameFile(HANDLE a, HANDLE b, unsigned long long& size) {
    BY_HANDLE_FILE_INFORMATION x, y;
    if (!GetFileInformationByHandle(a, &x) || !GetFileInformationByHandle(b, &y)) return false;
    size = (static_cast<unsigned long long>(x.nFileSizeHigh) << 32) | x.nFileSizeLow;
    return x.dwVolumeSerialNumber == y.dwVolumeSerialNumber && x.nFileIndexHigh == y.nFileIndexHigh &&
           x.nFileIndexLow == y.nFileIndexLow;
}

}  // namespace

RollClaim::RollClaim(const char* livePath) {
    range_.Offset = 0xFFFFFFF0;
    range_.OffsetHigh = 0x7FFFFFFF;
    file_.reset(OpenForClaim(livePath));
    if (!file_) return;
    if (!LockFileEx(file_.get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &range_)) return;
    // Another roller may have moved the file between the open and the lock:
    // the claim only counts while the path still names the locked file (which
    // nobody else can move now).
    const platform::FileHandle again(OpenForClaim(livePath));
    held_ = again && SameFile(file_.get(), again.get(), size_);
    if (!held_) UnlockFileEx(file_.get(), 0, 1, 0, &range_);
}

RollClaim::~RollClaim() {
    if (held_) UnlockFileEx(file_.get(), 0, 1, 0, &range_);
}

}  // namespace kv
