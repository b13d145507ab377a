// INI values of any file, through the operating system's profile functions.
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "KvConfig.h"
#include "config/product_ini_reader.h"

namespace {

// The copy-out rule of the string reads: n characters were delivered into the
// intermediate buffer; they are copied with a terminator only when n < size.
int32_t CopyDelivered(const char* delivered, size_t n, char* buffer, uint32_t size) {
    if (!buffer || size == 0) return n == 0 ? 0 : -1;
    if (n >= size) {
        buffer[0] = '\0';
        return n == 0 ? 0 : -1;
    }
    memcpy(buffer, delivered, n);
    buffer[n] = '\0';
    return int32_t(n);
}

}  // namespace

int32_t IniReadSectionAsString(const char* path, const char* section, char* buffer, uint32_t size) {
    char delivered[kv::kIniValueBytes];
    const size_t n = path && section ? GetPrivateProfileSectionA(section, delivered, sizeof delivered, path) : 0;
    return CopyDelivered(delivered, n, buffer, size);
}

int32_t IniReadValueAsString(const char* path, const char* section, const char* key, char* buffer, uint32_t size,
                             const char* defaultValue) {
    char delivered[kv::kIniValueBytes];
    // A missing path reads as an empty file; never as the system's win.ini.
    const char* fallback = section && key && defaultValue ? defaultValue : "";
    size_t n;
    if (path) {
        n = GetPrivateProfileStringA(section, section ? key : nullptr, fallback, delivered, sizeof delivered, path);
    } else {
        n = strnlen(fallback, sizeof delivered - 1);
        memcpy(delivered, fallback, n);
    }
    return CopyDelivered(delivered, n, buffer, size);
}

int32_t IniReadValueAsInt(const char* path, const char* section, const char* key, int32_t defaultValue) {
    if (!path || !section || !key) return defaultValue;
    return int32_t(GetPrivateProfileIntA(section, key, defaultValue, path));
}

int32_t IniReadValueAsIntRange(const char* path, const char* section, const char* key, int32_t defaultValue,
                               int32_t minValue, int32_t maxValue) {
    const int32_t value = IniReadValueAsInt(path, section, key, defaultValue);
    if (value < minValue) return minValue;
    if (value > maxValue) return maxValue;
    return value;
}

int32_t IniWriteSectionAsString(const char* path, const char* section, const char* data, int32_t length) {
    if (!path || !section || !data || length < 0) return 0;
    // Taken by length so embedded NULs survive; two spare NULs end the list
    // even when the caller's data lacks its final terminator.
    std::string lines(data, size_t(length));
    lines.append(2, '\0');
    return WritePrivateProfileSectionA(section, lines.data(), path) ? 1 : 0;
}

int32_t IniWriteValueAsInt(const char* path, const char* section, const char* key, int32_t value) {
    char text[16];
    snprintf(text, sizeof text, "%ld", long(value));
    return IniWriteValueAsString(path, section, key, text);
}

int32_t IniWriteValueAsString(const char* path, const char* section, const char* key, const char* value) {
    if (!path || !section) return 0;
    // key null deletes the section, value null deletes the key.
    return WritePrivateProfileStringA(section, key, key ? value : nullptr, path) ? 1 : 0;
}
