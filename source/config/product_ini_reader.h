// Reads one key of the validated product INI file.
#pragma once

#include <stddef.h>

namespace kv {

constexpr size_t kIniValueBytes = 1024;

// The key's value (up to 1023 characters) into value[kIniValueBytes]; its
// length, or 0 when the INI file is not validated or the key is missing or empty.
size_t ReadProductIniKey(const char* section, const char* key, char (&value)[kIniValueBytes]);

}  // namespace kv
