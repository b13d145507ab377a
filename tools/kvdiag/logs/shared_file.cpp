#include "logs/shared_file.h"

namespace kvdiag {

SharedFile::SharedFile(const std::string& path) {
    handle_.reset(CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!handle_) return;
    BY_HANDLE_FILE_INFORMATION info;
    if (!GetFileInformationByHandle(handle_.get(), &info)) {
        handle_.reset();
        return;
    }
    identity_.index = (uint64_t(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
    size_ = (uint64_t(info.nFileSizeHigh) << 32) | info.nFileSizeLow;
    lastWrite_ = info.ftLastWriteTime;
}


bool SharedFile::ReadFrom(uint64_t offset, std::string& text) const {
    LARGE_INTEGER at;
    at.QuadPart = LONGLONG(offset);
    if (!opened() || !SetFilePointerEx(handle_.get(), at, nullptr, FILE_BEGIN)) return false;
    char chunk[65536];
    DWORD got;
    while (ReadFile(handle_.get(), chunk, sizeof chunk, &got, nullptr) && got) text.append(chunk, got);
    return true;
}

std::string SharedFile::Head(size_t count) const {
    std::string head(count, '\0');
    DWORD got = 0;
    OVERLAPPED at{};  // offset 0
    if (!opened() || !ReadFile(handle_.get(), &head[0], DWORD(count), &got, &at)) got = 0;
    head.resize(got);
    return head;
}

}  // namespace kvdiag
