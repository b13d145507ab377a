// The C runtime's fopen never shares delete access, so a log opened with it
// cannot be rolled or archived while another process writes to it. The handle
// is made here with CreateFile and handed to the runtime as a FILE*.
#include "logging/shared_stream.h"

#include <windows.h>
#include <fcntl.h>
#include <io.h>

#include "platform/owned_handle.h"

namespace kv {

FILE* OpenSharedStream(const char* path, bool denyWrite) {
    if (!path || !*path) return nullptr;
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_DELETE | (denyWrite ? 0 : FILE_SHARE_WRITE);
    // FILE_APPEND_DATA without FILE_WRITE_DATA: the system places every write
    // at the current end of file, atomically against other appenders. The
    // null security attributes keep the handle out of child processes.
    platform::FileHandle file(CreateFileA(path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE, share, nullptr,
                                          OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return nullptr;
    const int fd = _open_osfhandle(reinterpret_cast<intptr_t>(file.get()), _O_APPEND | _O_TEXT);
    if (fd == -1) return nullptr;
    file.release();  // the descriptor owns it now
    FILE* stream = _fdopen(fd, "a");
    if (!stream) {
        _close(fd);  // closes the handle too
        return nullptr;
    }
    return stream;
}

}  // namespace kv
