// Entry points shared between the allocator's files.
#pragma once

#include <stdint.h>

namespace kv {

void* AllocateCore(uint32_t size, uint16_t flags, const char* file, int line);
void* ReAllocateCore(void* pointer, uint32_t size, uint16_t flags, const char* file, int line);

// Page pool (debug mode 0 with "AllocFromPage"): n usable bytes, or null.
void* AllocateFromPagePool(uint32_t n);
void FreeToPagePool(void* pointer);

// A fresh read/write region whose last page is no-access; returns the address
// that lies bytes before that page (null when the region cannot be had), so a
// write past the bytes faults at once. Regions of (bytes / page + 2) pages.
char* AllocateBeforeNoAccessPage(uint32_t bytes);

// Classifies a pointer for the free, the validity check and the checked
// copies, writing the message of a bad one (not the dumps).
enum class PointerCheck { Valid, NullElement, NotAllocator, DoubleFree };
PointerCheck ClassifyPointer(const void* pointer);
void ReportBadPointer(PointerCheck check, const void* pointer);

}  // namespace kv
