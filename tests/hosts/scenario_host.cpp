// The child host: a console program that loads KvDebugHelp.dll like any product
// process and runs one named scenario.
#include <windows.h>
#include <dbghelp.h>
#include <stdio.h>

#include <map>
#include <string>

#include "KvDebugHelp.h"
#include "scenario.h"

namespace kvhost {

static std::map<std::string, ScenarioFn>& Scenarios() {
    static std::map<std::string, ScenarioFn> scenarios;
    return scenarios;
}

ScenarioRegistrar::ScenarioRegistrar(const char* name, ScenarioFn fn) { Scenarios()[name] = fn; }

}  // namespace kvhost

bool UseProductIni(int argc, char** argv) {
    if (argc < 1) return false;
    SetKorvanIniFilePath(argv[0]);
    return ValidateKorvanIniFile() == 1;
}

LONG WINAPI DumpingFilter(EXCEPTION_POINTERS* pointers) {
    GenerateMiniDump(pointers);
    printf("filter: dump returned\n");
    return EXCEPTION_EXECUTE_HANDLER;
}

std::string SymbolAt(uint64_t address) {
    union {
        SYMBOL_INFO info;
        char bytes[sizeof(SYMBOL_INFO) + 256];
    } symbol{};
    symbol.info.SizeOfStruct = sizeof(SYMBOL_INFO);
    symbol.info.MaxNameLen = 256;
    DWORD64 displacement = 0;
    if (!SymFromAddr(GetCurrentProcess(), address, &displacement, &symbol.info)) return "?";
    return symbol.info.Name;
}

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IONBF, 0);  // output must survive a crash
    // A crash ends the host at once with its exception code: no error dialog
    // on Windows, no debugger started by Wine (which costs seconds per crash).
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    const auto found = argc < 2 ? kvhost::Scenarios().end() : kvhost::Scenarios().find(argv[1]);
    if (found == kvhost::Scenarios().end()) {
        fprintf(stderr, "usage: %s SCENARIO [ARGS...]\nscenarios:\n", argv[0]);
        for (const auto& s : kvhost::Scenarios()) fprintf(stderr, "  %s\n", s.first.c_str());
        return 2;
    }
    return found->second(argc - 2, argv + 2);
}
