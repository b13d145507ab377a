// Calls from the crash subsystem and the self-check into the library's logging, configuration
// and call-stack exports. They are resolved by name in this module's export
// table, so a service that is not built into this library yet simply answers
// "not available" instead of breaking the link.
#pragma once

#include <stdint.h>

namespace kv {
namespace lib {

// One system-log event (the text is passed as data, never as a format).
void SyslogText(const char* text);
// GetKorvanIniFilePath: > 0 when a validated path was copied.
int KorvanIniFilePath(char* buffer, int size);
// IniReadValueAsIntRange; the default when the service is missing.
int IniIntRange(const char* iniPath, const char* section, const char* key, int def, int minimum, int maximum);
// KorvanIniReadValueAsBool; the default when the service is missing.
int KorvanIniBool(const char* section, const char* key, int def);
// GetMemoryDumpPath; -2 when the service is missing.
int MemoryDumpPath(int folderType, char* buffer, int size);
// GetDebugLogFilePath and GetSyslogFilePath; -2 when the service is missing.
int DebugLogFilePath(int index, int folderType, char* buffer, int size);
int SyslogFilePath(int folderType, int backup, char* buffer, int size);
// LogInstrumentedAndKvcodeCallStacks.
void LogSymbolicStack(const uint64_t* frames, uint32_t count);
// GetStackFrames: frames captured, 0 when capture is not available.
uint16_t CaptureFrames(uint64_t* buffer, uint32_t count, uint32_t skip);

}  // namespace lib
}  // namespace kv
