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
// announce: write "Callstack instrumentation has been enabled" (once), as
// switching instrumentation on does; a stack formatted on request stays quiet.
bool InitializeSymbols(bool announce);
// SymCleanup when InitializeSymbols succeeded.
void CleanupSymbols();

// Source file and line of an address; false without line information.
bool SourceLineOf(void* address, const char*& file, uint32_t& line);

// The shared stack text of frames (valid until the next call): one line per
// frame with module, symbol, file and line. Untouched when call-stack logging
// is off, empty for count < 1.
const char* FormatStackText(void* const* frames, uint32_t count);

// One frame's line of the stack text, cut to room (under CallStackLock, with
// the symbol handler ready).
void FormatFrame(const void* frame, char* line, size_t room);

}  // namespace kv
