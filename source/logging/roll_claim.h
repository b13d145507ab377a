// The right to roll one live debug log: an exclusive byte-range lock on the
// live file itself, at an offset far past any real size so that no read or
// write of the log ever meets it. Every writer of the file can take it, in any
// session and as any user who may open the file, without a named object or a
// privilege, and the system drops it when the holder's handle closes, also
// when its process is killed mid-roll.
//
// It is only tried, never waited for: a roller that finds it taken knows the
// file is being rolled by someone else.
#pragma once

#include <windows.h>

#include "platform/owned_handle.h"

namespace kv {

class RollClaim {
public:
    // Claims the file that livePath names now, if it is not claimed already.
    explicit RollClaim(const char* livePath);
    ~RollClaim();
    RollClaim(const RollClaim&) = delete;
    RollClaim& operator=(const RollClaim&) = delete;

    bool held() const { return held_; }
    // The claimed file's size (valid while held).
    unsigned long long size() const { return size_; }
    // The claimed file, open for reading (valid while held).
    HANDLE file() const { return file_.get(); }

private:
    platform::FileHandle file_;
    OVERLAPPED range_{};
    bool held_ = false;
    unsigned long long size_ = 0;
};

}  // namespace kv
