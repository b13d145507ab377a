// The crash subsystem's calls into the rest of the library.
#include "crash/library_calls.h"

#include <windows.h>

#include "KvCallStack.h"
#include "KvConfig.h"
#include "frame/process_state.h"

namespace kv {
namespace lib {
namespace {

// The system log, the dump file name and the INI value readers are looked up by name in this
// module's export table until the log writer is part of every build.
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
using DumpPathFn = int32_t (*)(int32_t, char*, uint32_t);
using IniIntRangeFn = int32_t (*)(const char*, const char*, const char*, int32_t, int32_t, int32_t);
using IniBoolFn = int32_t (*)(const char*, const char*, int32_t);

SyslogFn syslogFn;
DumpPathFn dumpPathFn;
IniIntRangeFn iniIntRangeFn;
IniBoolFn iniBoolFn;
using DebugLogPathFn = int32_t (*)(int32_t, int32_t, char*, uint32_t);
using SyslogPathFn = int32_t (*)(int32_t, int32_t, char*, uint32_t);
DebugLogPathFn debugLogPathFn;
SyslogPathFn syslogPathFn;

}  // namespace

void SyslogText(const char* text) {
    if (auto fn = Resolve(syslogFn, "DirectSyslogWrite")) fn("%s", text);
}

int KorvanIniFilePath(char* buffer, int size) { return GetKorvanIniFilePath(buffer, static_cast<uint32_t>(size)); }

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
    return fn ? fn(folderType, buffer, static_cast<uint32_t>(size)) : -2;
}

int DebugLogFilePath(int index, int folderType, char* buffer, int size) {
    auto fn = Resolve(debugLogPathFn, "GetDebugLogFilePath");
    return fn ? fn(index, folderType, buffer, static_cast<uint32_t>(size)) : -2;
}

int SyslogFilePath(int folderType, int backup, char* buffer, int size) {
    auto fn = Resolve(syslogPathFn, "GetSyslogFilePath");
    return fn ? fn(folderType, backup, buffer, static_cast<uint32_t>(size)) : -2;
}

void LogSymbolicStack(const uint64_t* frames, uint32_t count) {
    LogInstrumentedAndKvcodeCallStacks(reinterpret_cast<void**>(const_cast<uint64_t*>(frames)), count);
}

uint16_t CaptureFrames(uint64_t* buffer, uint32_t count, uint32_t skip) {
    return GetStackFrames(reinterpret_cast<void**>(buffer), count, skip);
}

}  // namespace lib
}  // namespace kv
