#include "platform/small_file.h"

#include "platform/owned_handle.h"

namespace kv {
namespace platform {

DWORD ReadSmallFile(const std::string& path, size_t maxBytes, std::string& text) {
    text.clear();
    FileHandle file(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return GetLastError();
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file.get(), &size)) return GetLastError();
    if (size.QuadPart < 0 || static_cast<unsigned long long>(size.QuadPart) > maxBytes) return ERROR_FILE_TOO_LARGE;
    text.resize(static_cast<size_t>(size.QuadPart));
    size_t have = 0;
    while (have < text.size()) {
        const DWORD want = text.size() - have > 1u << 30 ? 1u << 30 : DWORD(text.size() - have);
        DWORD got = 0;
        if (!ReadFile(file.get(), &text[have], want, &got, nullptr)) {
            const DWORD error = GetLastError();
            text.clear();
            return error;
        }
        if (got == 0) break;  // cut while we read
        have += got;
    }
    text.resize(have);
    return 0;
}

}  // namespace platform
}  // namespace kv
