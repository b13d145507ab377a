// RegKey: one existing registry key in the 32-bit view.
#include <string.h>

#include "KvConfig.h"

namespace {

constexpr REGSAM kReadAccess = KEY_READ | KEY_WOW64_32KEY;
constexpr REGSAM kWriteAccess = KEY_ALL_ACCESS | KEY_WOW64_32KEY;
constexpr DWORD kMaxStringBytes = 260;
constexpr DWORD kMaxKeyNameBytes = 256;

RegAccessResult FromError(LONG error) {
    if (error == ERROR_SUCCESS) return RegAccessSuccess;
    return error == ERROR_FILE_NOT_FOUND ? RegAccessNotFound : RegAccessFailed;
}

}  // namespace

RegKey::RegKey(const std::string& subKey, HKEY root, bool readOnlyKey)
    : handle(nullptr), readOnly(readOnlyKey), isOpen(false) {
    HKEY opened = nullptr;
    if (RegOpenKeyExA(root, subKey.c_str(), 0, readOnly ? kReadAccess : kWriteAccess, &opened) == ERROR_SUCCESS) {
        handle = opened;
        isOpen = true;
    }
}

RegKey::~RegKey() {
    if (isOpen) RegCloseKey(handle);
    handle = nullptr;
    isOpen = false;
}

RegKey& RegKey::operator=(const RegKey& other) {
    handle = other.handle;
    readOnly = other.readOnly;
    isOpen = other.isOpen;
    return *this;
}

RegAccessResult RegKey::ReadValueAsDword(const std::string& name, uint32_t& value) {
    if (!isOpen) return RegAccessFailed;
    DWORD size = sizeof(uint32_t);
    return FromError(RegQueryValueExA(handle, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size));
}

RegAccessResult RegKey::WriteValueAsDword(const std::string& name, uint32_t value) {
    if (!isOpen || readOnly) return RegAccessFailed;
    const DWORD data = value;
    const LONG rc = RegSetValueExA(handle, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&data), sizeof data);
    return rc == ERROR_SUCCESS ? RegAccessSuccess : RegAccessFailed;
}

RegAccessResult RegKey::ReadValueAsString(const std::string& name, std::string& value) {
    if (!isOpen) return RegAccessFailed;
    // One byte more than the size passed keeps the text terminated even when
    // the stored value carries no terminator of its own.
    char text[kMaxStringBytes + 1] = {};
    DWORD size = kMaxStringBytes;
    const LONG rc = RegQueryValueExA(handle, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size);
    if (rc != ERROR_SUCCESS) return FromError(rc);
    value.assign(text);
    return RegAccessSuccess;
}

RegAccessResult RegKey::ReadValueAsMultiString(const std::string& name, std::vector<std::string>& values) {
    if (!isOpen) return RegAccessFailed;
    DWORD size = 0;
    LONG rc = RegQueryValueExA(handle, name.c_str(), nullptr, nullptr, nullptr, &size);
    if (rc != ERROR_SUCCESS) return FromError(rc);
    // Two spare NULs end the last string and the list even when the stored
    // data lacks its terminators.
    std::vector<char> data(size_t(size) + 2, '\0');
    DWORD type = 0;
    rc = RegQueryValueExA(handle, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(data.data()), &size);
    if (rc != ERROR_SUCCESS) return FromError(rc);
    values.clear();
    switch (type) {
        case REG_SZ:
        case REG_EXPAND_SZ:
            values.emplace_back(data.data());
            return RegAccessSuccess;
        case REG_MULTI_SZ:
            for (const char* s = data.data(); s < data.data() + size && *s; s += strlen(s) + 1) values.emplace_back(s);
            return RegAccessSuccess;
        default:
            return RegAccessFailed;
    }
}

RegAccessResult RegKey::EnumerateKeys(std::vector<std::string>& names) {
    if (!isOpen) return RegAccessFailed;
    names.clear();
    for (DWORD index = 0;; ++index) {
        char name[kMaxKeyNameBytes];
        DWORD length = sizeof name;
        const LONG rc = RegEnumKeyExA(handle, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (rc == ERROR_NO_MORE_ITEMS) return RegAccessSuccess;
        if (rc != ERROR_SUCCESS) return FromError(rc);
        names.emplace_back(name, length);
    }
}
