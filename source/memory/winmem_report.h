// Messages of the debug memory manager: stack dumps, hex dumps and the
// element report, all written to the debug log.
#pragma once

#include "KvMemory.h"

namespace kv {

// Captures up to 40 frames, starting at the host code that called into the
// library, and writes them four to a line.
void DumpCallerStack();

// "Stack trace:", a stack dump and two hex lines of the bytes at pointer.
void DumpMemoryAtPointer(const void* pointer);

// One hex line of up to 16 bytes into line (at least 80 bytes); returns the
// count still to print afterwards.
uint32_t FormatHexLine(const unsigned char* bytes, uint32_t count, char* line);

// "Memory Element - " and what the element is.
void ReportElement(DbgMemElement* element);

// Checks one element's header and guards; reports and returns false on damage.
bool CheckElement(DbgMemElement* element);

}  // namespace kv
