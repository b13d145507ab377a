// Which KvDebugHelp.dll and kvdiag.exe run here, their versions, the machine:
// what kvdiag version prints and kvdiag collect puts in its archive.
#pragma once

#include <stdio.h>

#include <string>

namespace kvdiag {

void PrintVersionReport(FILE* out);
// The report into a new file at path; false when it could not be written.
bool WriteVersionReport(const std::string& path);

}  // namespace kvdiag
