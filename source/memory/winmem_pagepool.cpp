// The page pool: a bump allocator inside blocks reserved with VirtualAlloc,
// each block released when its last allocation is freed. No lock, like the
// light mode: the pool state is plain.
#include <windows.h>
#include <string.h>

#include "memory/winmem_internal.h"

namespace kv {
namespace {

constexpr uint32_t kBlockUnit = 65535;

struct PagePool {
    char* block = nullptr;
    uint32_t size = 0;
    uint32_t fill = 0;
} Pool;

// The back-reference before each allocation is 8 bytes wide here (the block
// address of a 64-bit process), where the 32-bit layout had 4: the reserved
// length grows by those 4 bytes, everything else keeps its place.
constexpr uint32_t kBackRefBytes = sizeof(char*);

}  // namespace

void* AllocateFromPagePool(uint32_t n) {
    const uint32_t need = (n + 12 + 3) & ~3u;
    if (!Pool.block || Pool.fill + kBackRefBytes + need > Pool.size) {
        const uint32_t size = ((need + 8) / kBlockUnit + 1) * kBlockUnit;
        char* block = static_cast<char*>(VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        if (!block) {
            Pool = PagePool{};
            return nullptr;
        }
        Pool = PagePool{block, size, 8};  // the live count takes the first word, padded for alignment
    }
    const uint32_t taken = kBackRefBytes + need;
    char* slot = Pool.block + Pool.fill;
    *reinterpret_cast<uint32_t*>(Pool.block) += 1;
    memcpy(slot, &Pool.block, kBackRefBytes);
    Pool.fill += taken;
    return slot + kBackRefBytes;
}

void FreeToPagePool(void* pointer) {
    char* block;
    memcpy(&block, static_cast<char*>(pointer) - kBackRefBytes, kBackRefBytes);
    uint32_t& live = *reinterpret_cast<uint32_t*>(block);
    if (--live != 0) return;
    if (block == Pool.block) Pool = PagePool{};
    VirtualFree(block, 0, MEM_RELEASE);
}

}  // namespace kv
