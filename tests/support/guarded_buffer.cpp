#include "guarded_buffer.h"

#include <windows.h>
#include <string.h>

#include <algorithm>
#include <stdexcept>

namespace kvtest {

GuardedBuffer::GuardedBuffer(size_t size, unsigned char fill) : size_(size), fill_(fill) {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    const size_t page = info.dwPageSize;
    regionSize_ = ((size + page - 1) / page + 1) * page;
    region_ = static_cast<char*>(VirtualAlloc(nullptr, regionSize_, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    if (!region_) throw std::runtime_error("VirtualAlloc failed");
    DWORD old;
    char* guardPage = region_ + regionSize_ - page;
    if (!VirtualProtect(guardPage, page, PAGE_NOACCESS, &old)) throw std::runtime_error("VirtualProtect failed");
    data_ = guardPage - size;
    memset(data_, fill, size);
}

GuardedBuffer::~GuardedBuffer() {
    if (region_) VirtualFree(region_, 0, MEM_RELEASE);
}

bool GuardedBuffer::Untouched() const { return std::count(data_, data_ + size_, char(fill_)) == ptrdiff_t(size_); }

bool GuardedBuffer::AllZero() const { return std::count(data_, data_ + size_, '\0') == ptrdiff_t(size_); }

}  // namespace kvtest
