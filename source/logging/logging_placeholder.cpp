// Placeholder until the debug log writer lands: every diagnostic is dropped.
#include "KvLogging.h"

extern "C" {
void DbgLogWrite(const char*, ...) {}
void DbgLogWriteW(const wchar_t*, ...) {}
void DbgFileWrite(const char*, ...) {}
char* GetDateTimeString(char* buffer, uint32_t* length) {
    static char empty[32];
    if (length) *length = 0;
    return buffer ? buffer : empty;
}
}
