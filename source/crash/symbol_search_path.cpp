#include "crash/symbol_search_path.h"

#include <windows.h>
#include <string.h>

#include "platform/module_path.h"


namespace kv {
namespace {

std::string EnvironmentValue(const char* name) {
    const DWORD needed = GetEnvironmentVariableA(name, nullptr, 0);
    if (needed == 0) return {};
    std::string value(needed, '\0');
    const DWORD length = GetEnvironmentVariableA(name, &value[0], needed);
    value.resize(length < needed ? length : 0);
    return value;
}

}  // namespace

std::string SymbolSearchPath() {
    const std::string dllFolder = platform::ModuleFolder(platform::ThisModule());
    const std::string exeFolder = platform::ModuleFolder(nullptr);
    std::string path = dllFolder;
    auto append = [&path](const std::string& element) {
        if (element.empty()) return;
        if (!path.empty()) path += ';';
        path += element;
    };
    if (_stricmp(exeFolder.c_str(), dllFolder.c_str()) != 0) append(exeFolder);
    append(EnvironmentValue("_NT_SYMBOL_PATH"));
    append(EnvironmentValue("_NT_ALTERNATE_SYMBOL_PATH"));
    return path;
}

}  // namespace kv
