// kvdiag: checks a plant machine's KvDebugHelp installation from the command line.
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "command.h"

namespace kvdiag {

std::vector<Command>& Commands() {
    static std::vector<Command> commands;
    return commands;
}

}  // namespace kvdiag

static void PrintUsage() {
    auto commands = kvdiag::Commands();
    std::sort(commands.begin(), commands.end(),
              [](const kvdiag::Command& a, const kvdiag::Command& b) { return strcmp(a.name, b.name) < 0; });
    printf("kvdiag - KvDebugHelp field tool\n\nUsage: kvdiag COMMAND [ARGUMENTS]\n\n");
    for (const auto& c : commands) printf("  %-34s %s\n", c.usage, c.summary);
}

int main(int argc, char** argv) {
    if (argc < 2 || !strcmp(argv[1], "help") || !strcmp(argv[1], "--help") || !strcmp(argv[1], "-h")) {
        PrintUsage();
        return argc < 2 ? 1 : 0;
    }
    for (const auto& c : kvdiag::Commands())
        if (!strcmp(c.name, argv[1])) return c.run(argc - 2, argv + 2);
    fprintf(stderr, "kvdiag: unknown command '%s'\n\n", argv[1]);
    PrintUsage();
    return 1;
}
