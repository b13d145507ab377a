// DbgHelp functions bound at run time, on first use, outside the loader lock:
// attach never loads the symbol handler.
#pragma once

#include <windows.h>
#include <dbghelp.h>

namespace kv {

// The named export of dbghelp.dll as a typed pointer, or null.
template <class Fn>
Fn BindDbgHelp(const char* name) {
    static HMODULE module = LoadLibraryA("dbghelp.dll");
    return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

struct SymbolApi {
    decltype(&SymSetOptions) setOptions = nullptr;
    decltype(&SymInitialize) initialize = nullptr;
    decltype(&SymFromAddr) fromAddr = nullptr;
    decltype(&SymGetModuleInfo64) moduleInfo = nullptr;
    decltype(&SymGetLineFromAddr64) lineFromAddr = nullptr;
    decltype(&SymCleanup) cleanup = nullptr;

    bool Bind() {
        setOptions = BindDbgHelp<decltype(setOptions)>("SymSetOptions");
        initialize = BindDbgHelp<decltype(initialize)>("SymInitialize");
        fromAddr = BindDbgHelp<decltype(fromAddr)>("SymFromAddr");
        moduleInfo = BindDbgHelp<decltype(moduleInfo)>("SymGetModuleInfo64");
        lineFromAddr = BindDbgHelp<decltype(lineFromAddr)>("SymGetLineFromAddr64");
        cleanup = BindDbgHelp<decltype(cleanup)>("SymCleanup");
        return setOptions && initialize && fromAddr && moduleInfo && lineFromAddr && cleanup;
    }
};

}  // namespace kv
