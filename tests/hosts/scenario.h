// Scenarios of the child host: each is a small function that uses the library
// like a product process would, prints what the test should check and returns
// the process's exit code. Register one with KV_SCENARIO(name) in a
// tests/<subsystem>/*_scenarios.cpp file; run it as: <host>.exe name args...
#pragma once

#include <windows.h>
#include <stdint.h>
#include <stdio.h>

#include <string>

namespace kvhost {

using ScenarioFn = int (*)(int argc, char** argv);

struct ScenarioRegistrar {
    ScenarioRegistrar(const char* name, ScenarioFn fn);
};

}  // namespace kvhost

// Points the library at the product INI file named by argv[0] and validates
// it; false when there is no argument or the file does not validate.
bool UseProductIni(int argc, char** argv);

// An unhandled-exception filter that writes the library's minidump, prints
// "filter: dump returned" and ends the process.
LONG WINAPI DumpingFilter(EXCEPTION_POINTERS* pointers);

// The symbol at address, through the symbol handler the library started ("?" when none).
std::string SymbolAt(uint64_t address);

#define KV_SCENARIO(id)                                                        \
    static int id##_scenario(int argc, char** argv);                           \
    static ::kvhost::ScenarioRegistrar id##_registrar(#id, id##_scenario);     \
    static int id##_scenario([[maybe_unused]] int argc, [[maybe_unused]] char** argv)

// A scenario whose first argument is the product INI file (argv[0] stays in
// place); the host exits with 90 when the file does not validate.
#define KV_INI_SCENARIO(id)                                                        \
    static int id##_body(int argc, char** argv);                                   \
    KV_SCENARIO(id) { return UseProductIni(argc, argv) ? id##_body(argc, argv) : 90; } \
    static int id##_body([[maybe_unused]] int argc, [[maybe_unused]] char** argv)
