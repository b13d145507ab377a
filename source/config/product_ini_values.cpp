// INI values of the product INI file: the same reads and writes with the
// validated product INI path in front, and the caller's default otherwise.
#include <windows.h>
#include <string.h>

#include "KvConfig.h"
#include "config/ini_location.h"

namespace {

// The validated product INI path into path; false when there is none usable.
bool ProductIniPath(char (&path)[kv::kIniPathBytes]) {
    memset(path, 0, sizeof path);
    return GetKorvanIniFilePath(path, sizeof path) >= 1;
}

}  // namespace

int32_t KorvanIniReadSectionAsString(const char* section, char* buffer, uint32_t size) {
    char path[kv::kIniPathBytes];
    if (!ProductIniPath(path)) return 0;
    return IniReadSectionAsString(path, section, buffer, size);
}

int32_t KorvanIniReadValueAsString(const char* section, const char* key, char* buffer, uint32_t size,
                                   const char* defaultValue) {
    char path[kv::kIniPathBytes];
    if (ProductIniPath(path)) return IniReadValueAsString(path, section, key, buffer, size, defaultValue);
    const char* text = defaultValue ? defaultValue : "";
    const size_t length = strlen(text);
    if (!buffer || size_t(size) < length + 1) {
        if (buffer && size) buffer[0] = '\0';
        return -1;
    }
    memcpy(buffer, text, length + 1);
    return int32_t(length);
}

int32_t KorvanIniReadValueAsInt(const char* section, const char* key, int32_t defaultValue) {
    char path[kv::kIniPathBytes];
    if (!ProductIniPath(path)) return defaultValue;
    return IniReadValueAsInt(path, section, key, defaultValue);
}

int32_t KorvanIniReadValueAsIntRange(const char* section, const char* key, int32_t defaultValue, int32_t minValue,
                                     int32_t maxValue) {
    char path[kv::kIniPathBytes];
    if (!ProductIniPath(path)) return defaultValue;  // deliberately not clamped
    return IniReadValueAsIntRange(path, section, key, defaultValue, minValue, maxValue);
}

int32_t KorvanIniReadValueAsBool(const char* section, const char* key, int32_t defaultValue) {
    char text[kv::kIniPathBytes] = "";
    const int32_t length = KorvanIniReadValueAsString(section, key, text, sizeof text, defaultValue ? "1" : "0");
    // A key present with an empty value: the default exactly as given.
    if (length == 0) return defaultValue;
    return !_stricmp(text, "TRUE") || !_stricmp(text, "YES") || !strcmp(text, "1") ? 1 : 0;
}

int32_t KorvanIniWriteValueAsInt(const char* section, const char* key, int32_t value) {
    char path[kv::kIniPathBytes];
    if (!ProductIniPath(path)) return 0;
    return IniWriteValueAsInt(path, section, key, value);
}

int32_t KorvanIniWriteSectionAsString(const char* section, const char* data, int32_t length) {
    char path[kv::kIniPathBytes];
    if (!ProductIniPath(path)) return 0;
    return IniWriteSectionAsString(path, section, data, length);
}

int32_t KorvanIniWriteValueAsString(const char* section, const char* key, const char* value) {
    char path[kv::kIniPathBytes];
    if (!ProductIniPath(path)) return 0;
    return IniWriteValueAsString(path, section, key, value);
}
