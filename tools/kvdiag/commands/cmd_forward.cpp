// kvdiag forward: sends the logs of this station to the site's syslog collector.
#include <windows.h>

#include <string>
#include <vector>

#include "command.h"
#include "commands/forward_option_list.h"
#include "commands/forward_command.h"

namespace {

HANDLE stopEvent = nullptr;

BOOL WINAPI OnConsoleControl(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT) return FALSE;
    SetEvent(stopEvent);
    return TRUE;
}

}  // namespace

KVDIAG_COMMAND(forward, "--to URL [COMPONENT...]",
               "sends logs to a syslog collector (tcp, udp, tls) with nothing lost; --status shows it",
               kvdiag::JoinOptions({{"--status", nullptr, "show the state of the forwarder (of --state FOLDER's) and end"}},
                                   kvdiag::ForwardOptionList())) {
    stopEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(OnConsoleControl, TRUE);
    const int code = kvdiag::RunForwardCommand(std::vector<std::string>(argv, argv + argc), stopEvent);
    SetConsoleCtrlHandler(OnConsoleControl, FALSE);
    return code;
}
