// MiniDump: the write operation shared by every dump strength.
#include "KvCrash.h"
#include "platform/owned_handle.h"

MiniDump::MiniDump(HANDLE file_, EXCEPTION_POINTERS* exceptionPointers_)
    : file(file_), exceptionPointers(exceptionPointers_) {}

// The exported class holds the caller's raw handle (its layout is part of the
// interface) and closes it; an owner closes neither invalid value.
MiniDump::~MiniDump() { kv::platform::KernelHandle closing(file); }

HANDLE MiniDump::GetProcessHandle() { return GetCurrentProcess(); }

DWORD MiniDump::GetProcessId() { return GetCurrentProcessId(); }

void MiniDump::GetExceptionInfo(MINIDUMP_EXCEPTION_INFORMATION& info, bool& present) {
    present = true;
    info.ThreadId = GetCurrentThreadId();
    info.ExceptionPointers = exceptionPointers;
    info.ClientPointers = FALSE;
}

void MiniDump::GetUserStreamInfo(MINIDUMP_USER_STREAM_INFORMATION& info, bool& present) {
    present = false;
    info = MINIDUMP_USER_STREAM_INFORMATION{};
}

void MiniDump::GetCallbackInfo(MINIDUMP_CALLBACK_INFORMATION& info, bool& present) {
    present = true;
    info.CallbackRoutine = &MiniDump::ForwardCallback;
    info.CallbackParam = this;
}

BOOL MiniDump::Callback(const MINIDUMP_CALLBACK_INPUT*, MINIDUMP_CALLBACK_OUTPUT*) { return FALSE; }

BOOL WINAPI MiniDump::ForwardCallback(PVOID param, const PMINIDUMP_CALLBACK_INPUT input,
                                      PMINIDUMP_CALLBACK_OUTPUT output) {
    return static_cast<MiniDump*>(param)->Callback(input, output);
}

HRESULT MiniDump::WriteDump() {
    if (!file || file == INVALID_HANDLE_VALUE) return E_ACCESSDENIED;
    if (!exceptionPointers) return E_INVALIDARG;

    bool haveException = false, haveUserStreams = false, haveCallback = false;
    MINIDUMP_EXCEPTION_INFORMATION exceptionInfo{};
    MINIDUMP_USER_STREAM_INFORMATION userStreams{};
    MINIDUMP_CALLBACK_INFORMATION callback{};
    GetExceptionInfo(exceptionInfo, haveException);
    GetUserStreamInfo(userStreams, haveUserStreams);
    GetCallbackInfo(callback, haveCallback);
    const MINIDUMP_TYPE type = GetDumpType();

    const BOOL written = MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, type,
                                           haveException ? &exceptionInfo : nullptr,
                                           haveUserStreams ? &userStreams : nullptr,
                                           haveCallback ? &callback : nullptr);
    return written ? S_OK : E_FAIL;
}
