// Log files opened so other processes can keep writing, and the roller or the
// archiver can rename them, while this process holds them open.
#pragma once

#include <stdio.h>

namespace kv {

// Opens (creating) path in the runtime's text append mode (LF -> CR LF, ftell)
// through a non-inheritable handle that shares read and delete, and write
// unless denyWrite. Null on failure.
FILE* OpenSharedStream(const char* path, bool denyWrite = false);

}  // namespace kv
