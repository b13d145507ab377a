// Log files opened so other processes can keep writing, and the roller or the
// archiver can rename them, while this process holds them open.
#pragma once

#include <stdio.h>

namespace kv {

enum class StreamMode {
    AppendBinary,  // every write lands at the end, whole; ftell does not follow it
    AppendText,    // the runtime's append mode, LF -> CR LF translation and ftell
};

// Opens (creating) path for appending through a non-inheritable handle that
// shares read and delete, and write unless denyWrite. Null on failure.
FILE* OpenSharedStream(const char* path, StreamMode mode, bool denyWrite = false);

}  // namespace kv
