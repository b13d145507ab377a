#include "config/product_ini_reader.h"

#include <windows.h>

#include "config/ini_location.h"

namespace kv {

size_t ReadProductIniKey(const char* section, const char* key, char (&value)[kIniValueBytes]) {
    value[0] = '\0';
    // The slow file read runs after the lock is left.
    const IniSnapshot ini = SnapshotIniFile();
    if (!ini.valid) return 0;
    return GetPrivateProfileStringA(section, key, "", value, sizeof value, ini.path);
}

}  // namespace kv
