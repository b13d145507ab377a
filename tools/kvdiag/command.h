// A kvdiag command: a name, a one-line usage and the function that runs it.
// Commands register themselves from their own files with KVDIAG_COMMAND.
#pragma once

#include <vector>

namespace kvdiag {

// Receives the arguments after the command name; returns the exit code.
using CommandFn = int (*)(int argc, char** argv);

struct Command {
    const char* name;
    const char* usage;
    const char* summary;
    CommandFn run;
};

std::vector<Command>& Commands();

struct CommandRegistrar {
    explicit CommandRegistrar(const Command& command) { Commands().push_back(command); }
};

}  // namespace kvdiag

#define KVDIAG_COMMAND(id, usage, summary)                                         \
    static int id##_command(int argc, char** argv);                                \
    static ::kvdiag::CommandRegistrar id##_registrar({#id, usage, summary, id##_command}); \
    static int id##_command(int argc, char** argv)
