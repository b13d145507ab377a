#include "logs/shared_file.h"

namespace kvdiag {

SharedFile::SharedFile(const std::string& path) {
    handle_ = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle_ == INVALID_HANDLE_VALUE) {
        error_ = GetLastError();
        return;
    }
    BY_HANDLE_FILE_INFORMATION info;
    if (!GetFileInformationByHandle(handle_, &info)) {
        error_ = GetLastError();
        CloseHandle(handle_);
        handle_ = INVALID_HANDLE_VALUE;
        return;
    }
    identity_.index = (uint64_t(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
    size_ = (uint64_t(info.nFileSizeHigh) << 32) | info.nFileSizeLow;
    lastWrite_ = info.ftLastWriteTime;
}

SharedFile::~SharedFile() {
    if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
}

SharedFile::SharedFile(SharedFile&& other) noexcept
    : handle_(other.handle_), error_(other.error_), identity_(other.identity_), size_(other.size_),
      lastWrite_(other.lastWrite_) {
    other.handle_ = INVALID_HANDLE_VALUE;
}

bool SharedFile::ReadFrom(uint64_t offset, std::string& text) const {
    LARGE_INTEGER at;
    at.QuadPart = LONGLONG(offset);
    if (!opened() || !SetFilePointerEx(handle_, at, nullptr, FILE_BEGIN)) return false;
    char chunk[65536];
    DWORD got;
    while (ReadFile(handle_, chunk, sizeof chunk, &got, nullptr) && got) text.append(chunk, got);
    return true;
}

std::string SharedFile::Head(size_t count) const {
    std::string head(count, '\0');
    DWORD got = 0;
    OVERLAPPED at{};  // offset 0
    if (!opened() || !ReadFile(handle_, &head[0], DWORD(count), &got, &at)) got = 0;
    head.resize(got);
    return head;
}

}  // namespace kvdiag
