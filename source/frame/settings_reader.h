// Reading the per-executable settings from
// HKEY_CURRENT_USER\Software\Korvan\KvDebugHelp\<executable base name>.
#pragma once

#include "frame/process_state.h"

namespace kv {

enum class SettingId {
    ReportErrors, CrashOnError, ForceVirtualAlign, AllocFromPage, LogMemSafeCopy,
    TruncateMemSafeCopy, Padding, HeapCheckRate, StackTraceSize, MemoryBufferSize,
    HeapCheckInterval, LogErrors, DebugLogSize, DebugLogHistoryFiles,
    Mode16LowLimit, Mode16HighLimit, Mode16StackDepth, Count
};

// What the registry held for one setting.
struct SettingOrigin {
    bool present = false;
    uint32_t raw = 0;
};

// Fills settings for the executable base name, applying defaults and clamps in
// the attach order; origins (may be null) receives what the registry held.
// debugMode is the debug mode at the time of reading (bit 0x10 reads the
// Mode16 values instead of rounding the guard size).
void ReadSettingsFor(const char* exeBaseName, uint32_t debugMode, DebugHelpSettings& settings,
                     SettingOrigin* origins);

const char* SettingName(SettingId id);

// The range a setting is clamped to (DebugLogSize in KB); false for switches
// and the unclamped Mode16 limits.
bool SettingRange(SettingId id, int32_t& low, int32_t& high);

// The effective value of one setting as a signed number, for reports.
int64_t SettingValue(const DebugHelpSettings& settings, SettingId id);

}  // namespace kv
