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

// The back-reference before each allocation holds the full 64-bit block
// address, followed by the usable size where a short element keeps its size
// word (8 bytes before the data), so the length query and the reallocation
// read it as they do in light mode. 16 bytes where the 32-bit layout had 4.
struct BackReference {
    char* block;
    uint32_t size;
    uint32_t unused;
};
constexpr uint32_t kBackRefBytes = sizeof(BackReference);
static_assert(kBackRefBytes == 16, "back-reference layout");

}  // namespace

void* AllocateFromPagePool(uint32_t n) {
    const uint32_t need = (n + 12 + 3) & ~3u;
    if (!Pool.block || Pool.fill + kBackRefBytes + need > Pool.size) {
        // Room for the live count, the back-reference and the data.
        const uint32_t size = ((need + 16 + kBackRefBytes) / kBlockUnit + 1) * kBlockUnit;
        char* block = static_cast<char*>(VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        if (!block) {
            Pool = PagePool{};
            return nullptr;
        }
        Pool = PagePool{block, size, 16};  // the live count takes the first word, padded for alignment
    }
    const uint32_t taken = kBackRefBytes + need;
    char* slot = Pool.block + Pool.fill;
    *reinterpret_cast<uint32_t*>(Pool.block) += 1;
    const BackReference reference{Pool.block, n, 0};
    memcpy(slot, &reference, kBackRefBytes);
    Pool.fill += taken;
    return slot + kBackRefBytes;
}

void FreeToPagePool(void* pointer) {
    BackReference reference;
    memcpy(&reference, static_cast<char*>(pointer) - kBackRefBytes, kBackRefBytes);
    char* const block = reference.block;
    uint32_t& live = *reinterpret_cast<uint32_t*>(block);
    if (--live != 0) return;
    if (block == Pool.block) Pool = PagePool{};
    VirtualFree(block, 0, MEM_RELEASE);
}

}  // namespace kv
