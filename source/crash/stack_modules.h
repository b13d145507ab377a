// The modules a logged stack's addresses lie in, as one debug-log line, so that
// a tool can name the addresses after the process is gone.
#pragma once

#include <stdint.h>

namespace kv {

// Writes "Stack modules: 0xBASE 0xSIZE STAMP NAME.pdb; ..." (an image without
// a PDB name by its export name, "kernel32.dll"; "-" with neither) for the
// distinct images of addresses (zero entries skipped); nothing when none lies in an
// image. Reads only the mapped images' headers: no loader lock is taken, so it
// may run under MemoryLock.
void LogStackModules(const uint64_t* addresses, uint32_t count);

}  // namespace kv
