// Where the symbol handler looks for PDB files.
#pragma once

#include <string>

namespace kv {

// The folder of this DLL, the folder of the host executable, then the
// _NT_SYMBOL_PATH and _NT_ALTERNATE_SYMBOL_PATH variables when set, joined
// with ';' and each folder named once. Windows' DbgHelp looks for a PDB on
// its search path only (not beside the image), so without the first two a
// plant machine would resolve nothing but export names.
std::string SymbolSearchPath();

}  // namespace kv
