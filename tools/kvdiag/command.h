// A kvdiag command: its name, its operands, a summary, the options and words
// it takes (as data: the parser folds their letter case, and the usage line
// and --help are made from them) and the function that runs it. Commands
// register themselves from their own files with KVDIAG_COMMAND.
#pragma once

#include <string>
#include <vector>

namespace kvdiag {

// Receives the arguments after the command name, options spelled as declared;
// returns the exit code (ExitCode).
using CommandFn = int (*)(int argc, char** argv);

// kvdiag's exit codes, the same for every command.
enum ExitCode : int {
    kExitOk = 0,
    kExitFailed = 1,  // the command ran and failed, or found what it reports failing; the reason is printed
    kExitUsage = 2,   // the arguments were wrong; nothing was done
};

// An option ("--ini", "-n") or a word ("install", "heavy"): both are matched
// in any letter case and handed to the command as spelled here.
struct Option {
    const char* name;
    const char* value;  // what follows an option ("PATH"); nullptr for a flag or a word
    const char* help;   // what it does, one line
};

struct Command {
    const char* name;
    const char* operands;  // the usage line before the options: "SECTION [KEY]", "" for none
    const char* summary;
    std::vector<Option> options;
    CommandFn run;
};

// Options more than one command takes.
inline const Option kIniOption{"--ini", "PATH", "use this product INI file instead of the installed one"};
inline const Option kLineCountOption{"-n", "N", "show the last N lines (default 10)"};

std::vector<Command>& Commands();

// "tail [COMPONENT...] [--all] [-n N]": the operands, then every option the
// operands do not already spell.
std::string UsageLine(const Command& command);

// For a command's argument errors: prints "kvdiag: <problem>" (when given) and
// the running command's usage line to stderr; returns kExitUsage.
int UsageError(const std::string& problem = std::string());

// The options of two lists, in order (a command that takes another's options).
std::vector<Option> JoinOptions(std::vector<Option> first, const std::vector<Option>& second);

struct CommandRegistrar {
    explicit CommandRegistrar(const Command& command) { Commands().push_back(command); }
};

}  // namespace kvdiag

// KVDIAG_COMMAND(name, operands, summary, options...) { body }
#define KVDIAG_COMMAND(id, operands, summary, ...)                                                          \
    static int id##_command(int argc, char** argv);                                                         \
    static ::kvdiag::CommandRegistrar id##_registrar({#id, operands, summary, {__VA_ARGS__}, id##_command}); \
    static int id##_command(int argc, char** argv)
