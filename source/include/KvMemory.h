// KvMemory.h - the debug memory manager: allocation, heap checks and reports,
// checked copies.
#pragma once

#include <stdint.h>
#include "KvExport.h"

// Writes the current call stack (up to 40 frames) to the debug log.
KVDH_C_API void DbgHlpDumpStack(void);
