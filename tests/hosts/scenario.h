// Scenarios of the child host: each is a small function that uses the library
// like a product process would, prints what the test should check and returns
// the process's exit code. Register one with KV_SCENARIO(name) in a
// tests/<subsystem>/*_scenarios.cpp file; run it as: <host>.exe name args...
#pragma once

#include <stdio.h>

namespace kvhost {

using ScenarioFn = int (*)(int argc, char** argv);

struct ScenarioRegistrar {
    ScenarioRegistrar(const char* name, ScenarioFn fn);
};

}  // namespace kvhost

#define KV_SCENARIO(id)                                                        \
    static int id##_scenario(int argc, char** argv);                           \
    static ::kvhost::ScenarioRegistrar id##_registrar(#id, id##_scenario);     \
    static int id##_scenario([[maybe_unused]] int argc, [[maybe_unused]] char** argv)
