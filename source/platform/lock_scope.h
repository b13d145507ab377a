// Holds a critical section for a scope.
#pragma once

#include <windows.h>

namespace kv {
namespace platform {

class LockScope {
public:
    explicit LockScope(CRITICAL_SECTION& lock) : lock_(lock) { EnterCriticalSection(&lock_); }
    ~LockScope() { LeaveCriticalSection(&lock_); }
    LockScope(const LockScope&) = delete;
    LockScope& operator=(const LockScope&) = delete;

private:
    CRITICAL_SECTION& lock_;
};

}  // namespace platform
}  // namespace kv
