#include "crash/callstack_symbols.h"

#include <stdio.h>
#include <string.h>

#include "KvLogging.h"
#include "crash/callstack_state.h"
#include "crash/symbol_search_path.h"
#include "frame/process_state.h"

namespace kv {

SymbolApi Symbols;
HANDLE SymbolProcess = nullptr;

namespace {

constexpr size_t kTextRoom = 10000;
constexpr size_t kTextLimit = 9794;
constexpr DWORD kSymbolOptions = SYMOPT_UNDNAME | SYMOPT_DEFERRED_LOADS | SYMOPT_LOAD_LINES;  // 0x16

char StackText[kTextRoom];
bool Announced = false;  // "Callstack instrumentation has been enabled" written since the handler started

// SYMBOL_INFO with room for a 1024-character name.
union SymbolBuffer {
    SYMBOL_INFO info;
    char bytes[sizeof(SYMBOL_INFO) + 1024];
};
SymbolBuffer Symbol;

// Captured frames are return addresses: the call itself lies one byte
// before, and that byte carries the line of the call.
DWORD64 CallSiteOf(const void* returnAddress) { return reinterpret_cast<DWORD64>(returnAddress) - 1; }

const char* BaseName(const char* path) {
    const char* slash = strrchr(path, '\\');
    return slash ? slash + 1 : path;
}

}  // namespace

bool InitializeSymbols(bool announce) {
    if (Instrumentation.symbolsReady) {
        if (announce && !Announced) {
            Announced = true;
            DbgLogWrite("Callstack instrumentation has been enabled (PID %d) in %s process\n",
                        int(GetCurrentProcessId()), "x64");
        }
        return true;
    }
    if (!Symbols.Bind()) {
        DbgLogWrite("ERROR InitCallStackInstrumentation SymInitialize() has failed\n");
        return false;
    }
    // Line loading is on as well: without it the handler gives no source lines.
    Symbols.setOptions(kSymbolOptions);
    SymbolProcess = GetCurrentProcess();
    // PDBs are looked for beside this DLL and the host, then on the paths the
    // machine names for debuggers.
    const std::string searchPath = SymbolSearchPath();
    if (!Symbols.initialize(SymbolProcess, searchPath.c_str(), TRUE)) {
        DbgLogWrite("ERROR InitCallStackInstrumentation SymInitialize() has failed\n");
        SymbolProcess = nullptr;
        return false;
    }
    if (!CaptureStack) return false;
    Instrumentation.symbolsReady = true;
    return InitializeSymbols(announce);
}

void CleanupSymbols() {
    if (SymbolProcess && Symbols.cleanup) Symbols.cleanup(SymbolProcess);
    SymbolProcess = nullptr;
    Instrumentation.symbolsReady = false;
    Announced = false;
}

static bool LineOf(DWORD64 address, IMAGEHLP_LINE64& info, DWORD& displacement) {
    info = IMAGEHLP_LINE64{};
    info.SizeOfStruct = sizeof info;
    return Symbols.lineFromAddr(SymbolProcess, address, &displacement, &info);
}

bool SourceLineOf(void* address, const char*& file, uint32_t& line) {
    IMAGEHLP_LINE64 info;
    DWORD displacement = 0;
    if (!LineOf(CallSiteOf(address), info, displacement) || !info.FileName) return false;
    file = info.FileName;
    line = info.LineNumber;
    return true;
}

void FormatFrame(const void* frame, char* line, size_t room) {
    const DWORD64 address = reinterpret_cast<DWORD64>(frame);
    Symbol.info.SizeOfStruct = sizeof(SYMBOL_INFO);
    Symbol.info.MaxNameLen = 1024;
    DWORD64 symbolDisplacement = 0;
    IMAGEHLP_MODULE64 module{};
    module.SizeOfStruct = sizeof module;
    IMAGEHLP_LINE64 source;
    DWORD lineDisplacement = 0;
    if (Symbols.fromAddr(SymbolProcess, address, &symbolDisplacement, &Symbol.info) &&
        Symbols.moduleInfo(SymbolProcess, address, &module)) {
        const char* moduleName = BaseName(module.ImageName);
        if (LineOf(CallSiteOf(frame), source, lineDisplacement))
            snprintf(line, room, "(%s) %s(0x%llx) - %s Line %lu + Offset 0x%0x\n", moduleName, Symbol.info.Name,
                     static_cast<unsigned long long>(Symbol.info.Address), source.FileName,
                     static_cast<unsigned long>(source.LineNumber), unsigned(lineDisplacement));
        else
            snprintf(line, room, "(%s) %s(0x%llx)\n", moduleName, Symbol.info.Name,
                     static_cast<unsigned long long>(Symbol.info.Address));
    } else {
        snprintf(line, room, "(0x%llx) Unable to determine address info\n", static_cast<unsigned long long>(address));
    }
}

const char* FormatStackText(void* const* frames, uint32_t count) {
    if (!Instrumentation.callStackLogging) return StackText;
    EnterCriticalSection(&CallStackLock);
    StackText[0] = 0;
    size_t used = 0;
    for (uint32_t i = 0; i < count; ++i) {
        char line[200];
        FormatFrame(frames[i], line, sizeof line);
        if (used > kTextLimit) {
            memcpy(StackText + used, "...\n", 5);
            break;
        }
        const size_t length = strlen(line);
        memcpy(StackText + used, line, length + 1);
        used += length;
    }
    LeaveCriticalSection(&CallStackLock);
    return StackText;
}

}  // namespace kv
