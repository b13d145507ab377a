// DbgHlpDescribeSettings: the effective settings of any executable, for the
// field tool and for hosts that want to show what they run with.
#include <string.h>

#include "KvFrame.h"
#include "frame/settings_reader.h"

using namespace kv;

extern "C" int DbgHlpDescribeSettings(const char* exeName, DbgHlpSettingInfo* rows, int capacity) {
    const int count = int(SettingId::Count);
    if (!rows && capacity != 0) return -1;
    DebugHelpSettings settings;
    SettingOrigin origins[int(SettingId::Count)];
    ReadSettingsFor(exeName ? exeName : ExeName, exeName ? 0 : DebugMode, settings, origins);
    if (!exeName) settings = Settings;  // this process: what attach and the setters left
    for (int i = 0; i < count && i < capacity; ++i) {
        const SettingId id = SettingId(i);
        DbgHlpSettingInfo& row = rows[i];
        memset(&row, 0, sizeof row);
        strncpy(row.name, SettingName(id), sizeof row.name - 1);
        row.value = SettingValue(settings, id);
        row.fromRegistry = origins[i].present ? 1 : 0;
        row.rawValue = origins[i].raw;
    }
    return count;
}

extern "C" int DbgHlpGetSettingRange(const char* name, int32_t* low, int32_t* high) {
    if (!name) return -1;
    for (int i = 0; i < int(SettingId::Count); ++i) {
        if (strcmp(SettingName(SettingId(i)), name) != 0) continue;
        int32_t l = 0, h = 0;
        if (!SettingRange(SettingId(i), l, h)) return 0;
        if (low) *low = l;
        if (high) *high = h;
        return 1;
    }
    return -1;
}
