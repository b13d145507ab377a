#include "forward/state_file.h"

#include "platform/owned_handle.h"

namespace kvdiag {

DWORD ReadStateFile(const std::string& path, size_t maxBytes, std::string& text) {
    text.clear();
    const kv::platform::FileHandle file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                                    OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!file) {
        const DWORD error = GetLastError();
        return error == ERROR_PATH_NOT_FOUND ? ERROR_FILE_NOT_FOUND : error;
    }
    BY_HANDLE_FILE_INFORMATION info{};
    DWORD error = GetFileInformationByHandle(file.get(), &info) ? 0 : GetLastError();
    const unsigned long long size = (unsigned long long)info.nFileSizeHigh << 32 | info.nFileSizeLow;
    if (!error && (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) error = kErrorStoppedOnLink;
    if (!error && size > maxBytes) error = ERROR_FILE_TOO_LARGE;
    if (!error && size) {
        text.resize(size_t(size));
        DWORD got = 0;
        if (!ReadFile(file.get(), &text[0], DWORD(size), &got, nullptr)) error = GetLastError();
        text.resize(error ? 0 : got);
    }
    return error;
}

DWORD ReplaceStateFile(const std::string& path, const std::string& text, bool durable) {
    const std::string aside = path + ".new";
    DeleteFileA(aside.c_str());  // a leftover of a crash, or a link: the name goes, never a target
    DWORD error = 0;
    {
        const kv::platform::FileHandle file(CreateFileA(aside.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                                        FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        if (!file) return GetLastError();
        DWORD written = 0;
        if (!WriteFile(file.get(), text.data(), DWORD(text.size()), &written, nullptr)) error = GetLastError();
        else if (written != text.size()) error = ERROR_WRITE_FAULT;
        if (!error && durable && !FlushFileBuffers(file.get())) error = GetLastError();
    }
    // A rename replaces the directory entry at path: a link standing there
    // is replaced itself, its target left alone.
    const DWORD flags = MOVEFILE_REPLACE_EXISTING | (durable ? MOVEFILE_WRITE_THROUGH : 0);
    if (!error && !MoveFileExA(aside.c_str(), path.c_str(), flags)) error = GetLastError();
    if (error) DeleteFileA(aside.c_str());
    return error;
}

}  // namespace kvdiag
