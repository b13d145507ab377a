// One overlapped transfer on the crash handler's pipe, shared by the library
// (the client) and kvdiag (the handler): exactly size bytes within a time
// limit, or false. It never waits without a limit: Wine can leave a read
// pending even after it was cancelled, when the other end disconnected. The
// OVERLAPPED and the bytes live in a heap block with their own event, so a
// transfer that is never given back keeps that block (leaked on purpose)
// instead of a stack frame that has gone.
#pragma once

#include <windows.h>
#include <string.h>

#include "platform/owned_handle.h"

namespace kv {

inline bool PipeTransfer(HANDLE pipe, void* data, DWORD size, bool write, DWORD limitMs) {
    struct Pending {
        OVERLAPPED overlapped;
        char bytes[1];
    };
    auto* block = static_cast<Pending*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(Pending) + size));
    if (!block) return false;
    platform::KernelHandle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!event) {
        HeapFree(GetProcessHeap(), 0, block);
        return false;
    }
    block->overlapped.hEvent = event.get();
    if (write) memcpy(block->bytes, data, size);
    const BOOL started = write ? WriteFile(pipe, block->bytes, size, nullptr, &block->overlapped)
                               : ReadFile(pipe, block->bytes, size, nullptr, &block->overlapped);
    if (!started && GetLastError() != ERROR_IO_PENDING) {
        HeapFree(GetProcessHeap(), 0, block);
        return false;
    }
    if (WaitForSingleObject(event.get(), limitMs) != WAIT_OBJECT_0) {
        CancelIoEx(pipe, &block->overlapped);
        if (WaitForSingleObject(event.get(), 1000) != WAIT_OBJECT_0) {
            event.release();  // never given back: the block and its event stay for the transfer
            return false;
        }
    }
    DWORD done = 0;
    const bool complete = GetOverlappedResult(pipe, &block->overlapped, &done, FALSE) && done == size;
    if (complete && !write) memcpy(data, block->bytes, size);
    HeapFree(GetProcessHeap(), 0, block);
    return complete;
}

}  // namespace kv
