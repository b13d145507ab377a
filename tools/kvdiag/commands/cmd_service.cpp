// kvdiag service: installs and removes the forwarder as a Windows service;
// "service run" is what the service manager starts.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "command.h"
#include "commands/forward_option_list.h"
#include "forward/forward_options.h"
#include "service/windows_service.h"

KVDIAG_COMMAND(service, "install forward --to URL [COMPONENT...]|remove",
               "runs kvdiag forward as a Windows service started at boot",
               kvdiag::JoinOptions({{"install", nullptr, "install the service: install forward, then forward's options"},
                                    {"forward", nullptr, "the service the install is for: kvdiag forward"},
                                    {"remove", nullptr, "stop and remove the service"},
                                    {"run", nullptr, "what the service manager starts (not for a console)"}},
                                   kvdiag::ForwardOptionList())) {
    const std::vector<std::string> args(argv, argv + argc);
    if (argc == 1 && !strcmp(argv[0], "remove")) return kvdiag::RemoveForwardService();
    if (argc >= 1 && args[0] == "install" && argc >= 2 && args[1] == "forward")
        return kvdiag::InstallForwardService({args.begin() + 2, args.end()});
    if (argc >= 1 && args[0] == "run" && argc >= 2 && args[1] == "forward")
        return kvdiag::RunForwardService({args.begin() + 2, args.end()});
    return kvdiag::UsageError();
}
