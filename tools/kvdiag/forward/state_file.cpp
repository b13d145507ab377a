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

}  // namespace kvdiag
