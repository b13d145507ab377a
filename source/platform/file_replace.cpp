#include "platform/file_replace.h"

#include "platform/owned_handle.h"

namespace kv {
namespace platform {
namespace {

DWORD WriteAll(HANDLE file, const void* data, size_t size) {
    const char* at = static_cast<const char*>(data);
    while (size) {
        const DWORD chunk = size > 1u << 30 ? 1u << 30 : DWORD(size);
        DWORD written = 0;
        if (!WriteFile(file, at, chunk, &written, nullptr)) return GetLastError();
        if (written == 0) return ERROR_WRITE_FAULT;
        at += written;
        size -= written;
    }
    return 0;
}

}  // namespace

DWORD RenameFileDurably(const std::string& from, const std::string& to, bool replaceExisting) {
    const DWORD flags = MOVEFILE_WRITE_THROUGH | (replaceExisting ? MOVEFILE_REPLACE_EXISTING : 0);
    return MoveFileExA(from.c_str(), to.c_str(), flags) ? 0 : GetLastError();
}

DWORD ReplaceFileDurably(const std::string& path, const void* data, size_t size) {
    if (size && !data) return ERROR_INVALID_PARAMETER;
    const std::string aside = path + ".new";
    DeleteFileA(aside.c_str());  // a leftover of a crash, or a link: the name goes, never a target
    DWORD error = 0;
    {
        // No sharing: a second writer fails here instead of mixing its bytes in.
        FileHandle file(CreateFileA(aside.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        if (!file) return GetLastError();
        error = WriteAll(file.get(), data, size);
        if (!error && !FlushFileBuffers(file.get())) error = GetLastError();
    }
    if (!error) error = RenameFileDurably(aside, path, true);
    if (error) DeleteFileA(aside.c_str());
    return error;
}

}  // namespace platform
}  // namespace kv
