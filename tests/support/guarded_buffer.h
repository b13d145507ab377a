// A caller buffer whose last byte sits right before a no-access page, so a
// write past the declared size faults at once instead of passing unnoticed.
#pragma once

#include <stddef.h>

namespace kvtest {

class GuardedBuffer {
public:
    // size bytes, filled with fill; size 0 gives a pointer right at the no-access page.
    explicit GuardedBuffer(size_t size, unsigned char fill = 0xEE);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    char* data() { return data_; }
    size_t size() const { return size_; }
    // True when every byte still holds fill (nothing was written).
    bool Untouched() const;
    bool AllZero() const;

private:
    char* region_ = nullptr;
    size_t regionSize_ = 0;
    char* data_ = nullptr;
    size_t size_ = 0;
    unsigned char fill_ = 0;
};

}  // namespace kvtest
