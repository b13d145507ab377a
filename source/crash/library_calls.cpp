// Run-time binding of the library's own exports used by the crash subsystem.
#include "crash/library_calls.h"

#include <windows.h>

#include "frame/process_state.h"

namespace kv {
namespace lib {
namespace {

// Looks the export up once; a null result is looked up again next time, so a
// process never caches "missing" from before the module handle was known.
template <typename Fn>
Fn Resolve(Fn& cache, const char* name) {
    Fn fn = __atomic_load_n(&cache, __ATOMIC_ACQUIRE);
    if (!fn && ModuleHandle) {
        fn = reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(ModuleHandle, name)));
        __atomic_store_n(&cache, fn, __ATOMIC_RELEASE);
    }
    return fn;
}

using SyslogFn = void (*)(const char*, ...);
using IniPathFn = int (*)(char*, unsigned);
using IniIntRangeFn = int (*)(const char*, const char*, const char*, int, int, int);
using IniBoolFn = int (*)(const char*, const char*, int);
using DumpPathFn = int (*)(int, char*, unsigned);
using LogStackFn = void (*)(const uint64_t*, uint32_t);
using FramesFn = uint16_t (*)(uint64_t*, uint32_t, uint32_t);

SyslogFn syslogFn;
IniPathFn iniPathFn;
IniIntRangeFn iniIntRangeFn;
IniBoolFn iniBoolFn;
DumpPathFn dumpPathFn;
LogStackFn logStackFn;
FramesFn framesFn;

}  // namespace

void SyslogText(const char* text) {
    if (auto fn = Resolve(syslogFn, "DirectSyslogWrite")) fn("%s", text);
}

int KorvanIniFilePath(char* buffer, int size) {
    auto fn = Resolve(iniPathFn, "GetKorvanIniFilePath");
    return fn ? fn(buffer, static_cast<unsigned>(size)) : -2;
}

int IniIntRange(const char* iniPath, const char* section, const char* key, int def, int minimum, int maximum) {
    if (auto fn = Resolve(iniIntRangeFn, "IniReadValueAsIntRange")) return fn(iniPath, section, key, def, minimum, maximum);
    return def < minimum ? minimum : def > maximum ? maximum : def;
}

int KorvanIniBool(const char* section, const char* key, int def) {
    auto fn = Resolve(iniBoolFn, "KorvanIniReadValueAsBool");
    return fn ? fn(section, key, def) : def;
}

int MemoryDumpPath(int folderType, char* buffer, int size) {
    auto fn = Resolve(dumpPathFn, "GetMemoryDumpPath");
    return fn ? fn(folderType, buffer, static_cast<unsigned>(size)) : -2;
}

void LogSymbolicStack(const uint64_t* frames, uint32_t count) {
    if (auto fn = Resolve(logStackFn, "LogInstrumentedAndKvcodeCallStacks")) fn(frames, count);
}

uint16_t CaptureFrames(uint64_t* buffer, uint32_t count, uint32_t skip) {
    auto fn = Resolve(framesFn, "GetStackFrames");
    return fn ? fn(buffer, count, skip) : 0;
}

}  // namespace lib
}  // namespace kv
