// KvLogging.h - the debug log, application logs, the system log and the names
// of every log and data file.
#pragma once

#include <stdint.h>
#include <wchar.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif
#include "KvExport.h"

// ---- Debug log ------------------------------------------------------------

// One timestamped line in the debug log of the product log folder. The
// formatted line keeps "%%" meaning "%"; other percent signs in message
// arguments are written as they are.
KVDH_C_API void DbgLogWrite(const char* format, ...);
KVDH_C_API void DbgLogWriteW(const wchar_t* format, ...);
// The formatted text as it is: no timestamp, no added newline.
KVDH_C_API void DbgFileWrite(const char* format, ...);
// "YYYY-MM-DD hh:mm:ss.mmm<TAB>+hh:mm" into buffer (32 bytes; null: a static
// buffer); the length goes to *length when given.
KVDH_C_API char* GetDateTimeString(char* buffer, uint32_t* length);

// ---- Application logs and the system log ----------------------------------

// The record behind an application log handle; callers hold only the pointer.
typedef struct LogFile LogFile;

// Opens (appends to) <log folder>\fileName; archives it past sizeKb kilobytes.
// keepOpen false: the file is closed and reopened after every write.
KVDH_C_API LogFile* OpenLog(const char* fileName, uint32_t sizeKb, bool keepOpen);
KVDH_C_API void WriteLog(LogFile* log, const char* format, ...);
KVDH_C_API void CloseLog(LogFile* log);
// Routes system-log events into an application log (null: back to the syslog file).
KVDH_C_API void SetApplicationSyslog(LogFile* log);
KVDH_C_API void SetSyslogSize(LogFile* log, uint32_t sizeKb);
// One timestamped system-log line per line of the event text.
KVDH_C_API void DirectSyslogWriteEx(bool enabled, const char* format, ...);
KVDH_C_API void DirectSyslogWrite(const char* format, ...);
KVDH_C_API void DirectSyslogWriteW(const wchar_t* format, ...);

// ---- Log and data file names ----------------------------------------------
// Folder type 1 is the product log folder (created when missing); any other
// type gives the bare file name. Results: the length written, -1 when the
// buffer is too small (the buffer is then all zero), -2 when the folder cannot
// be found or created.

KVDH_C_API void SetComponentName(const char* name);
KVDH_C_API int32_t GetDebugLogDirPath(int32_t folderType, char* buffer, uint32_t size);
// index below 1: the live log (debug.log); 1..: history files (debug.001, ...).
KVDH_C_API int32_t GetDebugLogFilePath(int32_t index, int32_t folderType, char* buffer, uint32_t size);
KVDH_C_API int32_t GetSyslogFilePath(int32_t folderType, int32_t backup, char* buffer, uint32_t size);
KVDH_C_API int32_t GetParamsFilePath(int32_t folderType, int32_t backup, char* buffer, uint32_t size);
KVDH_C_API int32_t GetReloadFilePath(int32_t folderType, int32_t backup, char* buffer, uint32_t size);
KVDH_C_API int32_t GetTraceLogPath(int32_t folderType, int32_t backup, char* buffer, uint32_t size);
KVDH_C_API int32_t GetKernelDatPath(int32_t folderType, char* buffer, uint32_t size);
KVDH_C_API int32_t GetMemoryDumpPath(int32_t folderType, char* buffer, uint32_t size);
KVDH_C_API int32_t GetRuntimeManagerLogPath(int32_t folderType, int32_t backup, char* buffer, uint32_t size);
KVDH_C_API int32_t GetAlarmServerDBLogDirPath(int32_t folderType, char* buffer, uint32_t size);

#ifdef __cplusplus
#include <mutex>
#include <string>

#ifdef _MSC_VER
#pragma warning(push)
#pragma warning(disable : 4251)  // std members of an exported class
#endif

// File names: base, then "." and the component name when one is set, then the
// extension. Instances hold nothing; the component name is process-wide.
class KVDH_API FileNameGenerator {
public:
    static std::string theComponentName;
    static std::mutex theComponentNameMutex;

    // Refuses (keeps the old name, logs why) a name that is not IsComponentName.
    static void SetComponentName(const std::string& name);
    // A plain part of a file name: no \ / : * ? " < > |, no "..", no control
    // characters, no trailing dot or blank. Empty (no component) is one.
    static bool IsComponentName(const std::string& name);

    std::string GetDebugLogFileName(int index);
    std::string GetSyslogFileName(bool backup);
    std::string GetParamsFileName(bool backup);
    std::string GetReloadFileName(bool backup);
    std::string GetTracelogFileName(bool backup);
    std::string GetKernelDataFileName();
    std::string GetMemoryDumpFileName();
    std::string GetDBLogDirName();

protected:
    std::string GenerateFileName(const std::string& base, const std::string& extension);
};

#ifdef _MSC_VER
#pragma warning(pop)
#endif
#endif
