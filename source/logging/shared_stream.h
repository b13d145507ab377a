// Log files opened so other processes can keep writing, and the roller or the
// archiver can rename them, while this process holds them open.
#pragma once

#include <stdio.h>

namespace kv {

enum class StreamMode {
    AppendBinary,  // append-only handle: every write lands at the end, whole
    AppendText,    // the same, with the runtime's LF -> CR LF translation
};

// Opens (creating) path for appending through a non-inheritable handle that
// shares read and delete, and write unless denyWrite. Null on failure.
FILE* OpenSharedStream(const char* path, StreamMode mode, bool denyWrite = false);

}  // namespace kv
