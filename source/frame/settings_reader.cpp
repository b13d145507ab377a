#include "frame/settings_reader.h"

#include <stdio.h>

namespace kv {
namespace {

const char* const kSettingNames[] = {
    "ReportErrors", "CrashOnError", "ForceVirtualAlign", "AllocFromPage", "LogMemSafeCopy",
    "TruncateMemSafeCopy", "Padding", "HeapCheckRate", "StackTraceSize", "MemoryBufferSize",
    "HeapCheckInterval", "LogErrors", "DebugLogSize", "DebugLogHistoryFiles",
    "Mode16LowLimit", "Mode16HighLimit", "Mode16StackDepth"};
static_assert(sizeof(kSettingNames) / sizeof(kSettingNames[0]) == size_t(SettingId::Count),
              "one name per setting");

// Reads one 4-byte value; the type is deliberately not checked.
class SettingsKey {
public:
    explicit SettingsKey(const char* exeBaseName) {
        char path[260];
        snprintf(path, sizeof path, "Software\\Korvan\\KvDebugHelp\\%s", exeBaseName);
        if (RegOpenKeyExA(HKEY_CURRENT_USER, path, 0, KEY_READ, &key_) != ERROR_SUCCESS) key_ = nullptr;
    }
    ~SettingsKey() {
        if (key_) RegCloseKey(key_);
    }
    SettingsKey(const SettingsKey&) = delete;
    SettingsKey& operator=(const SettingsKey&) = delete;

    bool Query(SettingId id, SettingOrigin* origins, uint32_t& value) const {
        if (!key_) return false;
        DWORD data = 0, size = sizeof data;
        if (RegQueryValueExA(key_, SettingName(id), nullptr, nullptr, reinterpret_cast<BYTE*>(&data),
                             &size) != ERROR_SUCCESS)
            return false;
        value = data;
        if (origins) origins[int(id)] = SettingOrigin{true, data};
        return true;
    }

    bool Flag(SettingId id, SettingOrigin* origins, bool whenAbsent) const {
        uint32_t v;
        return Query(id, origins, v) ? v != 0 : whenAbsent;
    }

    // All clamps compare the stored value as a signed 32-bit number.
    uint32_t Clamped(SettingId id, SettingOrigin* origins, int32_t whenAbsent) const {
        uint32_t v;
        int32_t value = Query(id, origins, v) ? int32_t(v) : whenAbsent;
        int32_t low = 0, high = 0;
        SettingRange(id, low, high);
        if (value < low) value = low;
        if (value > high) value = high;
        return uint32_t(value);
    }

private:
    HKEY key_ = nullptr;
};

struct Range {
    SettingId id;
    int32_t low, high;
};
const Range kRanges[] = {
    {SettingId::Padding, 0, 1024},          {SettingId::HeapCheckRate, 1, 60},
    {SettingId::StackTraceSize, 1, 40},     {SettingId::MemoryBufferSize, 0, 512},
    {SettingId::HeapCheckInterval, 5, 300}, {SettingId::DebugLogSize, 1, 10240},
    {SettingId::DebugLogHistoryFiles, 0, 10}, {SettingId::Mode16StackDepth, 1, 32},
};

}  // namespace

const char* SettingName(SettingId id) { return kSettingNames[int(id)]; }

bool SettingRange(SettingId id, int32_t& low, int32_t& high) {
    for (const Range& r : kRanges)
        if (r.id == id) {
            low = r.low;
            high = r.high;
            return true;
        }
    return false;
}

void ReadSettingsFor(const char* exeBaseName, uint32_t debugMode, DebugHelpSettings& s,
                     SettingOrigin* origins) {
    if (origins)
        for (int i = 0; i < int(SettingId::Count); ++i) origins[i] = SettingOrigin{};
    SettingsKey key(exeBaseName);
    uint32_t ignored;
    key.Query(SettingId::ReportErrors, origins, ignored);  // looked up, deliberately without effect
    s.crashOnError = key.Flag(SettingId::CrashOnError, origins, false);
    s.forceVirtualAlign = key.Flag(SettingId::ForceVirtualAlign, origins, false);
    s.allocFromPage = key.Flag(SettingId::AllocFromPage, origins, false);
    s.logMemSafeCopy = key.Flag(SettingId::LogMemSafeCopy, origins, true);
    s.truncateMemSafeCopy = key.Flag(SettingId::TruncateMemSafeCopy, origins, false);
    s.padding = key.Clamped(SettingId::Padding, origins, 0);
    s.heapCheckRate = key.Clamped(SettingId::HeapCheckRate, origins, 5);
    s.stackTraceSize = key.Clamped(SettingId::StackTraceSize, origins, 8);
    s.memoryBufferSize = key.Clamped(SettingId::MemoryBufferSize, origins, 16);
    s.heapCheckInterval = key.Clamped(SettingId::HeapCheckInterval, origins, 50);
    s.logErrors = key.Flag(SettingId::LogErrors, origins, true);
    s.debugLogSize = key.Clamped(SettingId::DebugLogSize, origins, 4096) * 1024;
    s.debugLogHistoryFiles = int16_t(key.Clamped(SettingId::DebugLogHistoryFiles, origins, 1));

    SYSTEM_INFO info;
    GetSystemInfo(&info);
    s.pageSize = info.dwPageSize;

    if (debugMode & 0x10) {
        // Page-guarded elements end at the no-access page: no guard buffers.
        s.memoryBufferSize = 0;
        uint32_t v;
        s.mode16LowLimit = key.Query(SettingId::Mode16LowLimit, origins, v) ? v : 0;
        s.mode16HighLimit = key.Query(SettingId::Mode16HighLimit, origins, v) ? v : 0xFFFFFFFFu;
        s.mode16StackDepth = key.Clamped(SettingId::Mode16StackDepth, origins, 16);
    } else {
        s.memoryBufferSize = (s.memoryBufferSize + 3) & ~3u;
    }
}

int64_t SettingValue(const DebugHelpSettings& s, SettingId id) {
    switch (id) {
        case SettingId::ReportErrors: return 0;
        case SettingId::CrashOnError: return s.crashOnError ? 1 : 0;
        case SettingId::ForceVirtualAlign: return s.forceVirtualAlign ? 1 : 0;
        case SettingId::AllocFromPage: return s.allocFromPage;
        case SettingId::LogMemSafeCopy: return s.logMemSafeCopy;
        case SettingId::TruncateMemSafeCopy: return s.truncateMemSafeCopy;
        case SettingId::Padding: return s.padding;
        case SettingId::HeapCheckRate: return s.heapCheckRate;
        case SettingId::StackTraceSize: return s.stackTraceSize;
        case SettingId::MemoryBufferSize: return s.memoryBufferSize;
        case SettingId::HeapCheckInterval: return s.heapCheckInterval;
        case SettingId::LogErrors: return s.logErrors;
        case SettingId::DebugLogSize: return s.debugLogSize;
        case SettingId::DebugLogHistoryFiles: return s.debugLogHistoryFiles;
        case SettingId::Mode16LowLimit: return s.mode16LowLimit;
        case SettingId::Mode16HighLimit: return s.mode16HighLimit;
        case SettingId::Mode16StackDepth: return s.mode16StackDepth;
        case SettingId::Count: break;
    }
    return 0;
}

}  // namespace kv
