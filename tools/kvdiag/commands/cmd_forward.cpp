// kvdiag forward: sends the logs of this station to the site's syslog collector.
#include <windows.h>

#include <string>
#include <vector>

#include "command.h"
#include "forward/forwarder.h"

namespace {

HANDLE stopEvent = nullptr;

BOOL WINAPI OnConsoleControl(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT) return FALSE;
    SetEvent(stopEvent);
    return TRUE;
}

}  // namespace

KVDIAG_COMMAND(forward, "forward --to URL [LOG...]",
               "sends logs to a syslog collector (tcp, udp, tls) with nothing lost; --status shows it") {
    stopEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(OnConsoleControl, TRUE);
    const int code = kvdiag::RunForwardCommand(std::vector<std::string>(argv, argv + argc), stopEvent);
    SetConsoleCtrlHandler(OnConsoleControl, FALSE);
    return code;
}
