// A kernel handle closed when it goes out of scope (null and
// INVALID_HANDLE_VALUE are both "none").
#pragma once

#include <windows.h>

namespace kv {
namespace selfcheck {

class ScopedHandle {
public:
    explicit ScopedHandle(HANDLE handle = nullptr) : handle_(handle) {}
    ~ScopedHandle() {
        if (ok()) CloseHandle(handle_);
    }
    ScopedHandle(const ScopedHandle&) = delete;
    ScopedHandle& operator=(const ScopedHandle&) = delete;

    bool ok() const { return handle_ && handle_ != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return handle_; }
    HANDLE* out() { return &handle_; }
    // Hands the handle over to a caller that keeps it for good.
    HANDLE release() {
        HANDLE handle = handle_;
        handle_ = nullptr;
        return handle;
    }

private:
    HANDLE handle_;
};

}  // namespace selfcheck
}  // namespace kv
