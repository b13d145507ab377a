// Bounded reads from a block of bytes that came from outside (a mapped dump or
// image): every offset, count and size is checked against the block's end,
// with overflow-safe arithmetic, before anything is touched. Readers built on
// it cannot walk past the mapping whatever the file claims.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace kvdiag {

// `count` records of T laid out one after another; empty when none fit.
template <typename T>
struct Records {
    const T* data = nullptr;
    uint64_t count = 0;
    const T* begin() const { return data; }
    const T* end() const { return data + count; }
    const T& operator[](uint64_t i) const { return data[i]; }
};

class ByteView {
public:
    ByteView() = default;
    ByteView(const unsigned char* base, uint64_t size) : base_(base), size_(base ? size : 0) {}

    const unsigned char* base() const { return base_; }
    uint64_t size() const { return size_; }

    // True when `length` bytes at `offset` lie inside the block.
    bool Holds(uint64_t offset, uint64_t length) const {
        return base_ && offset <= size_ && length <= size_ - offset;
    }
    // How many records of `recordSize` bytes at `offset` the block holds.
    uint64_t Fits(uint64_t offset, uint64_t recordSize) const {
        if (!base_ || offset > size_ || recordSize == 0) return 0;
        return (size_ - offset) / recordSize;
    }
    // A T at `offset`, or null when it does not lie wholly inside the block.
    template <typename T>
    const T* At(uint64_t offset) const {
        return Holds(offset, sizeof(T)) ? reinterpret_cast<const T*>(base_ + offset) : nullptr;
    }
    // Copies a T at `offset` into `out` byte by byte, whatever the offset's
    // alignment (a CONTEXT wants 16 bytes; a hostile RVA may give it 1); false
    // when it does not lie wholly inside the block.
    template <typename T>
    bool Read(uint64_t offset, T& out) const {
        if (!Holds(offset, sizeof(T))) return false;
        memcpy(static_cast<void*>(&out), static_cast<const void*>(base_ + offset), sizeof(T));
        return true;
    }
    // `count` Ts from `offset`, cut to the records that lie wholly inside.
    template <typename T>
    Records<T> Span(uint64_t offset, uint64_t count) const {
        Records<T> records;
        const uint64_t fit = Fits(offset, sizeof(T));
        records.count = count < fit ? count : fit;
        if (records.count) records.data = reinterpret_cast<const T*>(base_ + offset);
        return records;
    }
    // The sub-block of `length` bytes at `offset`, cut at the block's end.
    ByteView Part(uint64_t offset, uint64_t length) const {
        if (!base_ || offset > size_) return {};
        return ByteView(base_ + offset, length < size_ - offset ? length : size_ - offset);
    }

private:
    const unsigned char* base_ = nullptr;
    uint64_t size_ = 0;
};

}  // namespace kvdiag
