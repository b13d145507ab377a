// Owners of Win32 handles. The API has two "no handle" values: CreateFile,
// CreateNamedPipe and CreateToolhelp32Snapshot fail with INVALID_HANDLE_VALUE,
// nearly everything else (OpenProcess, CreateEvent, CreateThread, ...) with
// null. INVALID_HANDLE_VALUE is also GetCurrentProcess()'s pseudo handle, so an
// owner must know which value its API fails with: FileHandle treats only
// INVALID_HANDLE_VALUE as failure, KernelHandle only null. Neither ever closes
// null or INVALID_HANDLE_VALUE.
#pragma once

#include <windows.h>

namespace kv {
namespace platform {

template <bool kFailsWithMinusOne>
class OwnedHandle {
public:
    static HANDLE Failed() { return kFailsWithMinusOne ? INVALID_HANDLE_VALUE : nullptr; }

    OwnedHandle() = default;
    explicit OwnedHandle(HANDLE handle) : handle_(handle) {}
    ~OwnedHandle() { Close(); }
    OwnedHandle(OwnedHandle&& other) noexcept : handle_(other.release()) {}
    OwnedHandle& operator=(OwnedHandle&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    // True unless the handle is the value its API fails with.
    bool valid() const { return handle_ != Failed(); }
    explicit operator bool() const { return valid(); }
    HANDLE get() const { return handle_; }

    // Closes the handle held and takes another.
    void reset(HANDLE handle = Failed()) {
        Close();
        handle_ = handle;
    }
    // For APIs that return a handle through a pointer; closes the one held.
    HANDLE* put() {
        reset();
        return &handle_;
    }
    // Hands the handle over to a caller that keeps it for good.
    HANDLE release() {
        const HANDLE handle = handle_;
        handle_ = Failed();
        return handle;
    }

private:
    void Close() {
        if (handle_ && handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
    }
    HANDLE handle_ = Failed();
};

// CreateFile, CreateNamedPipe, CreateToolhelp32Snapshot.
using FileHandle = OwnedHandle<true>;
// Processes, threads, events, mutexes, file mappings, tokens, jobs.
using KernelHandle = OwnedHandle<false>;

}  // namespace platform
}  // namespace kv
