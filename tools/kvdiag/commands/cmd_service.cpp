// kvdiag service: installs and removes the forwarder as a Windows service;
// "service run" is what the service manager starts.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "command.h"
#include "forward/forward_options.h"
#include "service/windows_service.h"

KVDIAG_COMMAND(service, "service install forward ...|remove",
               "runs kvdiag forward as a Windows service started at boot") {
    const std::vector<std::string> args(argv, argv + argc);
    if (argc == 1 && !strcmp(argv[0], "remove")) return kvdiag::RemoveForwardService();
    if (argc >= 1 && args[0] == "install" && argc >= 2 && args[1] == "forward")
        return kvdiag::InstallForwardService({args.begin() + 2, args.end()});
    if (argc >= 1 && args[0] == "run" && argc >= 2 && args[1] == "forward")
        return kvdiag::RunForwardService({args.begin() + 2, args.end()});
    fprintf(stderr, "usage: kvdiag service install %s\n       kvdiag service remove\n", kvdiag::kForwardUsage);
    return 2;
}
