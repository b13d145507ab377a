// The symbol handler of the call-stack system: start-up and stack text.
#pragma once

#include <windows.h>
#include <stdint.h>

#include "crash/dbghelp_binding.h"

namespace kv {

// Bound when the handler was initialised.
extern SymbolApi Symbols;
extern HANDLE SymbolProcess;

// SymInitialize for this process once (under CallStackLock); true when ready.
bool InitializeSymbols();
// SymCleanup when InitializeSymbols succeeded.
void CleanupSymbols();

// Source file and line of an address; false without line information.
bool SourceLineOf(void* address, const char*& file, uint32_t& line);

// The shared stack text of frames (valid until the next call): one line per
// frame with module, symbol, file and line. Untouched when call-stack logging
// is off, empty for count < 1.
const char* FormatStackText(void* const* frames, uint32_t count);

}  // namespace kv
