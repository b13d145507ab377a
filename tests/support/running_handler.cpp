#include "running_handler.h"

#include <windows.h>

#include "crash/pipe_account.h"

namespace kvtest {

bool EndRunningCrashHandler() {
    char name[kv::kPipeNameRoom];
    if (!kv::CrashHandlerPipeName(name)) return false;
    for (int attempt = 0; attempt < 50; ++attempt) {
        HANDLE pipe = CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                  SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
        if (pipe == INVALID_HANDLE_VALUE) {
            if (GetLastError() == ERROR_FILE_NOT_FOUND) return true;
            WaitNamedPipeA(name, 200);  // every instance busy
            continue;
        }
        ULONG server = 0;
        GetNamedPipeServerProcessId(pipe, &server);
        CloseHandle(pipe);
        HANDLE process = server ? OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, server) : nullptr;
        if (!process) {
            Sleep(100);
            continue;
        }
        TerminateProcess(process, 9);
        WaitForSingleObject(process, 30000);
        CloseHandle(process);
    }
    return false;
}

}  // namespace kvtest
