// The product's root registry key path and version numbers.
#include <stdio.h>
#include <string.h>

#include <atomic>
#include <mutex>

#include "KvConfig.h"
#include "config/buffer_result.h"
#include "config/root_key.h"

namespace kv {
namespace {

constexpr int kMajorVersion = 8;
constexpr int kMinorVersion = 40;

std::mutex RootKeyLock;
char RootKeyPath[128] = "";
std::atomic<bool> RootKeyBuilt{false};

}  // namespace

const char* RootRegistryKeyPath() {
    if (!RootKeyBuilt.load(std::memory_order_acquire)) {
        std::lock_guard<std::mutex> lock(RootKeyLock);
        if (!RootKeyBuilt.load(std::memory_order_relaxed)) {
            snprintf(RootKeyPath, sizeof RootKeyPath, "Software\\Korvan\\SCADA Installs\\%d.%d", kMajorVersion,
                     kMinorVersion);
            RootKeyBuilt.store(true, std::memory_order_release);
        }
    }
    return RootKeyPath;
}

}  // namespace kv

int32_t GetRootRegistryKeyPath(char* buffer, uint32_t size) {
    kv::ClearBuffer(buffer, size);
    const char* path = kv::RootRegistryKeyPath();
    if (!*path) return kv::kNotAvailable;
    return kv::CopyOut(path, strlen(path), buffer, size);
}

int32_t GetMajorVersion(void) { return kv::kMajorVersion; }
int32_t GetMinorVersion(void) { return kv::kMinorVersion; }
