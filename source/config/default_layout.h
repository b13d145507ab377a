// The installation layout that default INI files and profiles describe: the
// library in the binary folder, the INI file in "<root>\Config".
#pragma once

#include <string>

namespace kv {

// Splits off the last component after trailing separators are removed (never
// the first character). Only a path with exactly one kind of separator is
// split; with none or both, parent is empty and leaf is the whole path.
void SplitParentLeaf(const std::string& path, std::string& parent, std::string& leaf);

// The data root of an INI path "<root>Config\<file>" (Config in any case),
// ending in its separator; empty when the INI file is not laid out so.
std::string DataRootOf(const std::string& iniPath);

// Writes the "KVEDIT" keys of a new INI file (profile false) or profile.
void WriteDefaultKeys(const char* file, const std::string& iniPath, bool profile);

}  // namespace kv
