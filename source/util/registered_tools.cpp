// ToolIsRegistered, StartRegisteredTool and ExecuteCommand: helper tools of
// the product started by name, and any command line started through the shell.
#include <windows.h>
#include <shellapi.h>

#include <string.h>

#include <new>
#include <string>

#include "KvUtil.h"
#include "util/command_split.h"
#include "platform/owned_handle.h"
#include "util/tool_registration.h"

namespace {

// Longer than any command line Windows accepts.
constexpr size_t kMaxCommandLine = 32767;


}  // namespace

extern "C" int ToolIsRegistered(const char* toolName) {
    try {
        return kv::ReadToolValue(toolName, "").empty() ? 0 : 1;
    } catch (...) {
        return 0;
    }
}

extern "C" int StartRegisteredTool(const char* toolName) {
    try {
        const std::string command = kv::ReadToolValue(toolName, "");
        if (command.empty()) return ERROR_FILE_NOT_FOUND;
        const std::string expanded = kv::ExpandToolMacros(command);
        // The working folder is not checked: a missing one fails the start.
        const std::string folder = kv::ReadToolValue(toolName, "WorkingDirectory");
        if (ExecuteCommand(expanded.c_str(), nullptr, folder.empty() ? nullptr : folder.c_str(), 0)) return 0;
        return int(GetLastError());
    } catch (const std::bad_alloc&) {
        return ERROR_OUTOFMEMORY;
    } catch (...) {
        return ERROR_FILE_NOT_FOUND;
    }
}

extern "C" int GetRegisteredToolCommand(const char* toolName, int expanded, char* command, unsigned commandSize,
                                        char* folder, unsigned folderSize) {
    if (command && commandSize) memset(command, 0, commandSize);
    if (folder && folderSize) memset(folder, 0, folderSize);
    try {
        std::string text = kv::ReadToolValue(toolName, "");
        if (text.empty()) return -2;
        if (expanded) text = kv::ExpandToolMacros(text);
        const std::string directory = kv::ReadToolValue(toolName, "WorkingDirectory");
        if (!command || commandSize < text.size() + 1) return -1;
        if (folder && folderSize < directory.size() + 1) return -1;
        memcpy(command, text.c_str(), text.size() + 1);
        if (folder) memcpy(folder, directory.c_str(), directory.size() + 1);
        return int(text.size());
    } catch (...) {
        return -2;
    }
}

extern "C" int ExecuteCommand(const char* command, const char* parameters, const char* directory,
                              unsigned long timeout) {
    try {
        if (!command || !*command || strlen(command) > kMaxCommandLine) return 0;
        std::string program = command;
        std::string arguments;
        if (parameters) {
            arguments = parameters;
        } else {
            // A quoted program keeps its quotes; the greedy ".*" reaches to the
            // last quote that is still followed by white space.
            std::string first, rest;
            if (kv::SplitCommandLine(command, first, rest)) {
                program = first;
                arguments = rest;
            }
        }
        static_assert(sizeof(SHELLEXECUTEINFOA) == 112, "the shell's 64-bit structure");
        SHELLEXECUTEINFOA info{};
        info.cbSize = sizeof info;
        info.fMask = SEE_MASK_NOCLOSEPROCESS;
        info.lpVerb = "open";
        info.lpFile = program.c_str();
        info.lpParameters = arguments.c_str();
        info.lpDirectory = directory;
        info.nShow = SW_SHOWNORMAL;
        if (!ShellExecuteExA(&info) || !info.hProcess) return 0;
        const kv::platform::KernelHandle process(info.hProcess);
        if (timeout) WaitForSingleObject(info.hProcess, timeout);  // the outcome is not examined
        return 1;
    } catch (...) {
        return 0;
    }
}
