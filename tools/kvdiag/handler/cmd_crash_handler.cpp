// kvdiag crash-handler: the out-of-process dump writer of this logon session.
// Product processes register over its named pipe (DbgHlpStartCrashHandler);
// at a crash it writes their dump from outside. It ends a while after its
// last client ended.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "command.h"
#include "crash/pipe_transfer.h"
#include "handler/handler_client.h"
#include "handler/handler_log.h"
#include "selfcheck/scoped_handle.h"

namespace {

using kv::selfcheck::ScopedHandle;

constexpr DWORD kDefaultIdleSeconds = 60;
constexpr DWORD kRegistrationMs = 5000;  // a client that connects but says nothing is dropped

// Reads one registration from a connected client and answers it.
void Register(HANDLE pipe) {
    kv::CrashRegistration registration{};
    if (!kv::PipeTransfer(pipe, &registration, sizeof registration, false, kRegistrationMs)) {
        kvdiag::HandlerSay("a connection without a registration was dropped");
        return;
    }
    kv::CrashRegistrationReply reply{kv::kCrashHandlerProtocol, 0};
    if (registration.protocol != kv::kCrashHandlerProtocol)
        kvdiag::HandlerSay("process %lu refused: protocol %lu, this handler speaks %lu",
                   static_cast<unsigned long>(registration.processId), static_cast<unsigned long>(registration.protocol),
                   static_cast<unsigned long>(kv::kCrashHandlerProtocol));
    else if (kvdiag::ServeClient(registration))
        reply.handlerProcessId = GetCurrentProcessId();
    // Disconnecting discards what the client has not read yet: the reply is
    // left until the client closes its end (the read below then fails at
    // once), or for the time limit.
    char none;
    if (kv::PipeTransfer(pipe, &reply, sizeof reply, true, kRegistrationMs))
        kv::PipeTransfer(pipe, &none, sizeof none, false, kRegistrationMs);
}

int RunCrashHandler(int argc, char** argv) {
    DWORD idleSeconds = kDefaultIdleSeconds;
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--idle-seconds") == 0 && i + 1 < argc) {
            idleSeconds = strtoul(argv[++i], nullptr, 10);
        } else {
            return kvdiag::UsageError();
        }
    }
    char name[80];
    kv::CrashHandlerPipeName(name);
    ScopedHandle pipe(CreateNamedPipeA(name, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                       PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1,
                                       4096, 4096, 0, nullptr));
    if (!pipe.ok()) {
        // Exit code 0: the handler of this session runs already, and serves.
        const DWORD error = GetLastError();
        printf("no pipe %s (error %lu): %s\n", name, error,
               error == ERROR_ACCESS_DENIED ? "another crash handler serves this session, ending" : "ending");
        return error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY ? 0 : 1;
    }
    ScopedHandle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    kvdiag::HandlerSay("process %lu listens on %s; ends %lu s after its last client",
                       static_cast<unsigned long>(GetCurrentProcessId()), name, static_cast<unsigned long>(idleSeconds));
    for (;;) {
        OVERLAPPED overlapped{};
        overlapped.hEvent = event.get();
        bool connected = ConnectNamedPipe(pipe.get(), &overlapped) || GetLastError() == ERROR_PIPE_CONNECTED;
        const bool pending = !connected && GetLastError() == ERROR_IO_PENDING;
        while (pending && !connected) {
            if (WaitForSingleObject(event.get(), 1000) == WAIT_OBJECT_0) {
                DWORD unused = 0;
                connected = GetOverlappedResult(pipe.get(), &overlapped, &unused, FALSE) != FALSE;
                break;
            }
            if (kvdiag::ClientCount() == 0 && GetTickCount64() - kvdiag::LastClientEnded() >= idleSeconds * 1000ull) {
                CancelIo(pipe.get());
                kvdiag::HandlerSay("no client for %lu s: ending", static_cast<unsigned long>(idleSeconds));
                return 0;
            }
        }
        if (connected) Register(pipe.get());
        DisconnectNamedPipe(pipe.get());
        if (!connected && !pending) Sleep(100);  // a failing pipe must not spin
    }
}

const kvdiag::CommandRegistrar registrar({"crash-handler", "",
                                          "write product processes' crash dumps from outside them (started by "
                                          "DbgHlpStartCrashHandler)",
                                          {{"--idle-seconds", "N", "end N seconds after the last client went"}},
                                          RunCrashHandler});

}  // namespace
