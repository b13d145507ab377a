// kvdiag: checks a plant machine's KvDebugHelp installation from the command line.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "command.h"

namespace kvdiag {

std::vector<Command>& Commands() {
    static std::vector<Command> commands;
    return commands;
}

}  // namespace kvdiag

namespace {

bool IsHelpWord(const char* arg) {
    return !_stricmp(arg, "help") || !_stricmp(arg, "--help") || !_stricmp(arg, "-h") || !strcmp(arg, "/?") ||
           !strcmp(arg, "-?");
}

const kvdiag::Command* Find(const char* name) {
    for (const auto& c : kvdiag::Commands())
        if (!_stricmp(c.name, name)) return &c;
    return nullptr;
}

void PrintUsage() {
    auto commands = kvdiag::Commands();
    std::sort(commands.begin(), commands.end(),
              [](const kvdiag::Command& a, const kvdiag::Command& b) { return strcmp(a.name, b.name) < 0; });
    printf("kvdiag - KvDebugHelp field tool\n\nUsage: kvdiag COMMAND [ARGUMENTS]\n"
           "       kvdiag help COMMAND, kvdiag COMMAND --help (or /?)\n\n");
    for (const auto& c : commands) printf("  %-34s %s\n", c.usage, c.summary);
}

void PrintCommandHelp(const kvdiag::Command& c) {
    printf("usage: kvdiag %s\n\n%s\n", c.usage, c.summary);
}

// Options are matched without regard to letter case, as Windows programs'
// are: an argument that equals, ignoring case, an option of the command's
// usage (or the common --ini) is given to the command as the usage spells it.
void CanonicalOptions(const kvdiag::Command& c, int argc, char** argv) {
    std::string usage = std::string(c.usage) + " --ini";
    for (char& ch : usage)
        if (strchr("[]|.", ch)) ch = ' ';
    for (int i = 0; i < argc; ++i) {
        if (argv[i][0] != '-') continue;
        for (size_t at = usage.find(" -"); at != std::string::npos; at = usage.find(" -", at + 1)) {
            const size_t end = usage.find(' ', at + 1);
            const std::string option = usage.substr(at + 1, end == std::string::npos ? end : end - at - 1);
            if (!_stricmp(option.c_str(), argv[i])) strcpy(argv[i], option.c_str());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || IsHelpWord(argv[1])) {
        if (argc >= 3) {
            if (const kvdiag::Command* c = Find(argv[2])) {
                PrintCommandHelp(*c);
                return 0;
            }
            fprintf(stderr, "kvdiag: unknown command '%s'\n\n", argv[2]);
        }
        PrintUsage();
        return argc < 2 || argc >= 3 ? 1 : 0;
    }
    const kvdiag::Command* c = Find(argv[1]);
    if (!c) {
        fprintf(stderr, "kvdiag: unknown command '%s'\n\n", argv[1]);
        PrintUsage();
        return 1;
    }
    if (argc == 3 && IsHelpWord(argv[2]) && _stricmp(argv[2], "help") != 0) {
        PrintCommandHelp(*c);
        return 0;
    }
    CanonicalOptions(*c, argc - 2, argv + 2);
    return c->run(argc - 2, argv + 2);
}
