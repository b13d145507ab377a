// The crash handler's pipe, served many clients at once: a few instances
// always listen, each connection is handed to a thread of its own and its
// instance replaced, so a client that says nothing, or sends garbage, holds
// only its own instance. Everything is overlapped: no wait without a limit.
#pragma once

#include <windows.h>

#include "handler/pipe_security.h"
#include "platform/owned_handle.h"

namespace kvdiag {

class PipeListener {
public:
    using ServeFn = void (*)(HANDLE pipe, const FILETIME& connected);

    explicit PipeListener(const char* name) : name_(name) {}
    // Creates the first instance, which claims the name for this process and
    // sets its access list; false (GetLastError) when the name is taken.
    bool Claim();
    // Serves connections with serve until stop returns true (asked at least
    // once a second).
    void Run(ServeFn serve, bool (*stop)());

    // Connections being served now.
    static long Connections();

private:
    static constexpr int kListening = 4;     // instances waiting for a client
    static constexpr long kMostServed = 64;  // connections served at once; later ones wait in line

    struct Instance {
        kv::platform::FileHandle pipe;
        kv::platform::KernelHandle event;
        OVERLAPPED overlapped{};
    };
    HANDLE Create(DWORD firstFlag);
    bool Listen(Instance& instance);
    void HandOver(Instance& instance, ServeFn serve);

    const char* name_;
    OwnAccountOnly security_;
    Instance instances_[kListening];
};

}  // namespace kvdiag
