// Stack captures that start at the code that called into this library.
#pragma once

#include <stdint.h>

namespace kv {

// Captures up to count frames starting at the first frame outside
// this library, that is at the host function that called the export, then
// skip frames further out. Which library frames lie in between (tail calls,
// inlining) does not matter. The whole capture is at most 62 frames deep,
// this library's included. 0 when capture is unavailable.
uint16_t CaptureFromCaller(void** frames, uint32_t count, uint32_t skip = 0);

}  // namespace kv
