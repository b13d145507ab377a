// kvdiag crash-handler: the out-of-process dump writer of one account, logon
// session and integrity level. Product processes running as it does register
// over its named pipe (DbgHlpStartCrashHandler); at a crash it writes their
// dump from outside. It ends a while after its last client ended.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "command.h"
#include "commands/ini_status.h"
#include "crash/pipe_account.h"
#include "handler/handler_client.h"
#include "handler/handler_log.h"
#include "handler/pipe_listener.h"
#include "handler/registration.h"
#include "platform/error_text.h"
#include "platform/owned_handle.h"

namespace {

using kv::platform::FileHandle;
using kv::platform::KernelHandle;

constexpr DWORD kDefaultIdleSeconds = 60;

DWORD idleSeconds = kDefaultIdleSeconds;

bool NoClientForLong() {
    if (kvdiag::ClientCount() != 0 || kvdiag::PipeListener::Connections() != 0) return false;
    if (GetTickCount64() - kvdiag::LastClientEnded() < idleSeconds * 1000ull) return false;
    kvdiag::HandlerSay("no client for %lu s: ending", static_cast<unsigned long>(idleSeconds));
    return true;
}

// The pipe name is taken: by this account's handler (exit 0, it serves), or
// by a stranger, which no client of this account will register with (exit 1).
int NameTaken(const char* name, DWORD error) {
    FileHandle probe;
    for (int attempt = 0; attempt < 5 && !probe; ++attempt) {
        *probe.put() = CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                   SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
        if (!probe && GetLastError() == ERROR_PIPE_BUSY) WaitNamedPipeA(name, 1000);
    }
    std::string reason = "it cannot be opened (" + kv::platform::ErrorText(GetLastError()) + ")";
    KernelHandle server(probe ? kv::VerifyPipeServer(probe.get(), reason) : nullptr);
    if (server) {
        printf("process %lu, the crash handler of this account, session and level, serves %s: ending\n",
               static_cast<unsigned long>(GetProcessId(server.get())), name);
        return 0;
    }
    printf("cannot create the pipe %s (%s), and %s: ending\n", name, kv::platform::ErrorText(error).c_str(),
           reason.c_str());
    return 1;
}

int RunCrashHandler(int argc, char** argv) {
    const char* iniOption = kvdiag::TakeIniOption(argc, argv);
    for (int i = 0; i < argc; ++i) {
        if (strcmp(argv[i], "--idle-seconds") == 0 && i + 1 < argc) {
            idleSeconds = strtoul(argv[++i], nullptr, 10);
        } else {
            return kvdiag::UsageError();
        }
    }
    char name[kv::kPipeNameRoom];
    if (!kv::CrashHandlerPipeName(name)) {
        printf("cannot read this process's account (%s): ending\n", kv::platform::ErrorText(GetLastError()).c_str());
        return 1;
    }
    kvdiag::PipeListener listener(name);
    if (!listener.Claim()) return NameTaken(name, GetLastError());
    kvdiag::UseOwnIni(iniOption);
    kvdiag::HandlerSay("process %lu listens on %s; ends %lu s after its last client",
                       static_cast<unsigned long>(GetCurrentProcessId()), name, static_cast<unsigned long>(idleSeconds));
    listener.Run(kvdiag::ServeConnection, NoClientForLong);
    return 0;
}

const kvdiag::CommandRegistrar registrar({"crash-handler", "",
                                          "write product processes' crash dumps from outside them (started by "
                                          "DbgHlpStartCrashHandler)",
                                          {{"--idle-seconds", "N", "end N seconds after the last client went"},
                                           {"--ini", "PATH", "the product INI file whose log folder takes its own log"}},
                                          RunCrashHandler});

}  // namespace
