#include "platform/module_path.h"

namespace kv {
namespace platform {

HMODULE ThisModule() {
    static const char anchor = 0;
    HMODULE module = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, &anchor,
                       &module);
    return module;
}

std::string ModulePath(HMODULE module) {
    // GetModuleFileName cuts a long path to the buffer and says so only by
    // filling it; grow until the name fits (32767 is the longest path there is).
    std::string path(MAX_PATH, '\0');
    for (;;) {
        const DWORD length = GetModuleFileNameA(module, &path[0], DWORD(path.size()));
        if (length == 0) return {};
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        if (path.size() >= 32768) return {};
        path.resize(path.size() * 2);
    }
}

std::string ModuleFolder(HMODULE module) {
    std::string path = ModulePath(module);
    const size_t slash = path.find_last_of("\\/");
    if (slash == std::string::npos) return {};
    path.resize(slash == 2 && path[1] == ':' ? slash + 1 : slash);
    return path;
}

}  // namespace platform
}  // namespace kv
