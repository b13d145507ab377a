// The memory report, shared by DbgMemHeapReport and the detach sequence.
#pragma once

#include <stdint.h>

namespace kv {

// The time base of the allocation-rate line.
void StartRateClock();

void WriteMemoryReport(uint32_t fromTime, uint32_t toTime, bool rateOnly);

}  // namespace kv
