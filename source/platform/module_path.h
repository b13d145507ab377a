// Where a loaded module lies on disk.
#pragma once

#include <windows.h>

#include <string>

namespace kv {
namespace platform {

// The module this code is linked into: the DLL in the library, the program in kvdiag.
HMODULE ThisModule();

// The full path of a loaded module (null: the process's executable), any
// length; "" when the system cannot tell it.
std::string ModulePath(HMODULE module);

// The folder of ModulePath, without a trailing separator except a drive's
// root ("C:\"); "" when the path is unknown.
std::string ModuleFolder(HMODULE module);

}  // namespace platform
}  // namespace kv
