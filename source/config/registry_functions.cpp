// The three one-shot registry exports, each on a RegKey of its own.
#include <string.h>

#include "KvConfig.h"

namespace {

// Why a key would not open for reading: 2 when it does not exist, so a caller
// can tell "not installed" from "access denied"; 1 for anything else.
int32_t OpenFailure(HKEY root, const char* subKey) {
    HKEY probe = nullptr;
    const LONG error = RegOpenKeyExA(root, subKey, 0, KEY_READ | KEY_WOW64_32KEY, &probe);
    if (error == ERROR_SUCCESS) RegCloseKey(probe);
    return error == ERROR_FILE_NOT_FOUND ? RegAccessNotFound : RegAccessFailed;
}

}  // namespace

int32_t RegistryReadValueAsDword(HKEY root, const char* subKey, const char* name, uint32_t* value) {
    if (!subKey || !name || !value) return RegAccessFailed;
    RegKey key(subKey, root, true);
    if (!key.IsOpen()) return OpenFailure(root, subKey);
    return key.ReadValueAsDword(name, *value);
}

int32_t RegistryWriteValueAsDword(HKEY root, const char* subKey, const char* name, uint32_t value) {
    if (!subKey || !name) return RegAccessFailed;
    RegKey key(subKey, root, false);
    return key.WriteValueAsDword(name, value);
}

int32_t RegistryReadValueAsString(HKEY root, const char* subKey, const char* name, char* buffer, uint32_t* size) {
    if (buffer && size) memset(buffer, 0, *size);
    if (!subKey || !name || !buffer || !size) return RegAccessFailed;
    RegKey key(subKey, root, true);
    if (!key.IsOpen()) return OpenFailure(root, subKey);
    std::string text;
    const RegAccessResult rc = key.ReadValueAsString(name, text);
    if (rc != RegAccessSuccess) return rc;
    if (*size < text.size() + 1) return RegAccessFailed;
    memcpy(buffer, text.c_str(), text.size() + 1);
    *size = uint32_t(text.size());
    return RegAccessSuccess;
}
