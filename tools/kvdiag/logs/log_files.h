// The debug logs of the log folder and the tail of a text file.
#pragma once

#include <string>
#include <vector>

#include "common/failure.h"

namespace kvdiag {

// The most of a file's end that is read for its last lines or its last
// report: a debug log rolls at 10 MB, and a file named by mistake (a dump, a
// disk image) or one without line ends must not fill the memory.
constexpr long long kMaxTailBytes = 64LL * 1024 * 1024;
// The last count lines of a file, without their line ends, read from its
// end; fails (with the system's error) when the file cannot be opened or read.
Failure LastLines(const std::string& path, int count, std::vector<std::string>& lines);
// The live debug log of a component ("" for none) and its history files
// 1..10; empty when the log folder cannot be found or created.
std::vector<std::string> DebugLogChain(const std::string& component);
// The component of a debug log's file name: "debug.log" has none,
// "debug.<component>.log" names one; false for any other name.
bool DebugLogComponent(const std::string& fileName, std::string& component);
// The components of every debug log in the log folder ("" for debug.log);
// none when the folder is not named or cannot be read.
std::vector<std::string> DebugLogComponents();

}  // namespace kvdiag
