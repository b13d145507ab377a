// kvdiag: checks a plant machine's KvDebugHelp installation from the command line.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "command.h"
#include "common/console_text.h"

namespace kvdiag {
namespace {

const Command* running = nullptr;

bool IsWord(const Option& option) { return option.name[0] != '-'; }

// True when text holds name as a whole word ("[NAME --remove]" holds "--remove").
bool Spells(const char* text, const char* name) {
    const size_t length = strlen(name);
    for (const char* at = strstr(text, name); at; at = strstr(at + 1, name)) {
        const bool starts = at == text || strchr(" [|", at[-1]);
        const bool ends = !at[length] || strchr(" ]|.", at[length]);
        if (starts && ends) return true;
    }
    return false;
}

}  // namespace

std::vector<Command>& Commands() {
    static std::vector<Command> commands;
    return commands;
}

std::string UsageLine(const Command& command) {
    std::string line = command.name;
    if (*command.operands) line.append(" ").append(command.operands);
    for (const Option& option : command.options) {
        if (IsWord(option) || Spells(command.operands, option.name)) continue;
        line.append(" [").append(option.name);
        if (option.value) line.append(" ").append(option.value);
        line += ']';
    }
    return line;
}

int UsageError(const std::string& problem) {
    if (!problem.empty()) PrintLine(problem, "kvdiag: ", stderr);
    if (running)
        fprintf(stderr, "usage: kvdiag %s\n       (kvdiag %s --help says what each option does)\n",
                UsageLine(*running).c_str(), running->name);
    return kExitUsage;
}

std::vector<Option> JoinOptions(std::vector<Option> first, const std::vector<Option>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace kvdiag

namespace {

using kvdiag::Command;
using kvdiag::Option;

bool IsHelpWord(const char* arg) {
    return !_stricmp(arg, "help") || !_stricmp(arg, "--help") || !_stricmp(arg, "-h") || !strcmp(arg, "/?") ||
           !strcmp(arg, "-?");
}

const Command* Find(const char* name) {
    for (const auto& c : kvdiag::Commands())
        if (!_stricmp(c.name, name)) return &c;
    return nullptr;
}

void PrintCommandList() {
    auto commands = kvdiag::Commands();
    std::sort(commands.begin(), commands.end(), [](const Command& a, const Command& b) { return strcmp(a.name, b.name) < 0; });
    printf("kvdiag - KvDebugHelp field tool\n\nUsage: kvdiag COMMAND [ARGUMENTS]\n"
           "       kvdiag help COMMAND, kvdiag COMMAND --help (or /?): every option of a command\n\n");
    for (const auto& c : commands) {
        const std::string head = std::string(c.name) + (*c.operands ? " " : "") + c.operands;
        if (head.size() <= 34) printf("  %-34s %s\n", head.c_str(), c.summary);
        else printf("  %s\n  %-34s %s\n", head.c_str(), "", c.summary);
    }
    printf("\nCommands, options and words such as \"light\" ignore letter case.\n"
           "Exit codes: %d done, %d failed (the reason is printed), %d wrong arguments (nothing done).\n",
           kvdiag::kExitOk, kvdiag::kExitFailed, kvdiag::kExitUsage);
}

void PrintCommandHelp(const Command& c) {
    printf("usage: kvdiag %s\n\n%s\n", kvdiag::UsageLine(c).c_str(), c.summary);
    for (const bool words : {true, false}) {
        bool first = true;
        for (const Option& option : c.options) {
            if ((option.name[0] != '-') != words) continue;
            if (first) printf("\n%s:\n", words ? "words" : "options");
            first = false;
            const std::string head = std::string(option.name) + (option.value ? " " : "") + (option.value ? option.value : "");
            printf("  %-20s %s\n", head.c_str(), option.help);
        }
    }
}

// Options and words are matched without regard to letter case, as Windows
// programs' are, and handed to the command as declared. An option's value is
// left as it is.
void FoldLetterCase(const Command& c, int argc, char** argv) {
    for (int i = 0; i < argc; ++i) {
        for (const Option& option : c.options) {
            if (_stricmp(option.name, argv[i]) != 0) continue;
            memcpy(argv[i], option.name, strlen(option.name));
            if (option.value) ++i;
            break;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        PrintCommandList();
        return kvdiag::kExitUsage;
    }
    if (IsHelpWord(argv[1])) {
        if (argc == 2) {
            PrintCommandList();
            return kvdiag::kExitOk;
        }
        if (const Command* c = Find(argv[2])) {
            PrintCommandHelp(*c);
            return kvdiag::kExitOk;
        }
        fprintf(stderr, "kvdiag: unknown command '%s'\n\n", argv[2]);
        PrintCommandList();
        return kvdiag::kExitUsage;
    }
    const Command* c = Find(argv[1]);
    if (!c) {
        fprintf(stderr, "kvdiag: unknown command '%s'\n\n", argv[1]);
        PrintCommandList();
        return kvdiag::kExitUsage;
    }
    if (argc == 3 && IsHelpWord(argv[2]) && _stricmp(argv[2], "help") != 0) {
        PrintCommandHelp(*c);
        return kvdiag::kExitOk;
    }
    kvdiag::running = c;
    FoldLetterCase(*c, argc - 2, argv + 2);
    return c->run(argc - 2, argv + 2);
}
