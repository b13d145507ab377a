#include "crash/symbol_search_path.h"

#include <windows.h>
#include <string.h>


namespace kv {
namespace {

// The folder part of a module's file name; empty when it has none.
std::string ModuleFolder(HMODULE module) {
    char path[MAX_PATH];
    const DWORD length = GetModuleFileNameA(module, path, sizeof path);
    if (length == 0 || length >= sizeof path) return {};
    char* slash = strrchr(path, '\\');
    if (!slash) return {};
    *slash = 0;
    return path;
}

std::string EnvironmentValue(const char* name) {
    const DWORD needed = GetEnvironmentVariableA(name, nullptr, 0);
    if (needed == 0) return {};
    std::string value(needed, '\0');
    const DWORD length = GetEnvironmentVariableA(name, &value[0], needed);
    value.resize(length < needed ? length : 0);
    return value;
}

HMODULE ThisModule() {
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCSTR>(&SymbolSearchPath), &module);
    return module;
}

}  // namespace

std::string SymbolSearchPath() {
    const std::string dllFolder = ModuleFolder(ThisModule()), exeFolder = ModuleFolder(nullptr);
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
