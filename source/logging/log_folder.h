// The product log folder as the path functions and the writers see it.
#pragma once

#include <stdint.h>

#include <string>

namespace kv {

// Folder type 1: the product log folder, created with its parents when missing;
// returns its length, or -2 when it cannot be found or created. Any other type:
// an empty folder and 0.
int ResolveLogFolder(int folderType, std::string& folder);

// The log folder the last successful ResolveLogFolder gave, without waiting:
// false when none was resolved yet or a thread is recording one right now.
bool TryLastKnownLogFolder(char* folder, size_t size);

// folder + "\" + name (or the name alone for an empty folder) into the caller's
// buffer, which is zero-filled first: the length, -1 when it does not fit.
int32_t CopyFolderAndName(const std::string& folder, const std::string& name, char* buffer, uint32_t size);

}  // namespace kv
