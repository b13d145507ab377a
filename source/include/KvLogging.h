// KvLogging.h - the debug log, application logs, the system log and the names
// of every log and data file.
#pragma once

#include <stdint.h>
#include <wchar.h>
#include "KvExport.h"

// One timestamped line in the debug log of the product log folder.
KVDH_C_API void DbgLogWrite(const char* format, ...);
KVDH_C_API void DbgLogWriteW(const wchar_t* format, ...);
// The formatted text as it is: no timestamp, no added newline.
KVDH_C_API void DbgFileWrite(const char* format, ...);
// "YYYY-MM-DD hh:mm:ss.mmm<TAB>+hh:mm" into buffer (32 bytes; null: a static
// buffer); the length goes to *length when given.
KVDH_C_API char* GetDateTimeString(char* buffer, uint32_t* length);
