// The product INI file's location: setting, validating and reporting it.
#include <stdlib.h>
#include <string.h>

#include "KvConfig.h"
#include "config/buffer_result.h"
#include "config/ini_location.h"
#include "config/root_key.h"

namespace kv {

std::mutex IniFileLock;
IniFileLocation IniLocation;

IniSnapshot SnapshotIniFile() {
    IniSnapshot snapshot;
    std::lock_guard<std::mutex> lock(IniFileLock);
    memcpy(snapshot.path, IniLocation.path, sizeof snapshot.path);
    snapshot.valid = IniLocation.valid;
    return snapshot;
}

bool TrySnapshotIniFile(IniSnapshot& snapshot) {
    std::unique_lock<std::mutex> lock(IniFileLock, std::try_to_lock);
    if (!lock.owns_lock()) return false;
    memcpy(snapshot.path, IniLocation.path, sizeof snapshot.path);
    snapshot.valid = IniLocation.valid;
    return true;
}

int32_t ValidateIniFile(bool readOnly) {
    int32_t result = 0;
    DWORD error = ERROR_FILE_NOT_FOUND;
    {
        std::lock_guard<std::mutex> lock(IniFileLock);
        bool located = IniLocation.path[0] != '\0';
        if (!located) {
            // Taken as it stands in the registry: not made absolute.
            char found[kIniPathBytes + 1] = "";
            uint32_t size = kIniPathBytes;
            located = RegistryReadValueAsString(HKEY_LOCAL_MACHINE, RootRegistryKeyPath(), "DefaultINIPath", found,
                                                &size) == RegAccessSuccess;
            if (located) memcpy(IniLocation.path, found, size + 1);
        }
        // A failed check leaves an earlier success standing.
        if (located && CheckIniFile(IniLocation.path, readOnly, IniLocation.tolerateMissing)) {
            IniLocation.valid = true;
            result = 1;
        }
        if (located) error = GetLastError();
    }
    SetLastError(error);  // as the check left it, whatever unlocking did
    return result;
}

}  // namespace kv

int32_t SetKorvanIniFilePath(const char* path) { return SetKorvanIniFilePathEx(path, 0); }

int32_t SetKorvanIniFilePathEx(const char* path, int32_t mode) {
    if (!path) return 0;
    char absolute[kv::kIniPathBytes];
    if (!_fullpath(absolute, path, sizeof absolute)) return 0;  // too long: refused, not cut
    bool tolerateMissing;
    {
        std::lock_guard<std::mutex> lock(kv::IniFileLock);
        kv::IniFileLocation& location = kv::IniLocation;
        if (strcmp(absolute, location.path) != 0) {
            location.valid = false;
            memcpy(location.path, absolute, strlen(absolute) + 1);
        }
        tolerateMissing = location.tolerateMissing;
    }
    // Setting never validates: the caller validates afterwards.
    return kv::CheckIniFile(absolute, mode == 1, tolerateMissing) ? 1 : 0;
}

int32_t ValidateKorvanIniFile(void) { return kv::ValidateIniFile(false); }
int32_t ValidateKorvanIniFileEx(int32_t mode) { return kv::ValidateIniFile(mode == 1); }

void InvalidateKorvanIniFile(void) {
    std::lock_guard<std::mutex> lock(kv::IniFileLock);
    kv::IniLocation.valid = false;
}

void TolerateMissingIniFile(void) {
    std::lock_guard<std::mutex> lock(kv::IniFileLock);
    kv::IniLocation.tolerateMissing = true;
}

int32_t GetKorvanIniFilePath(char* buffer, uint32_t size) {
    kv::ClearBuffer(buffer, size);
    const kv::IniSnapshot ini = kv::SnapshotIniFile();
    const int32_t copied = kv::CopyOut(ini.path, strlen(ini.path), buffer, size);
    if (copied < 0) return copied;
    return ini.valid ? copied : kv::kNotValidated;
}

int32_t GetKorvanIniFilePathAsConfigured(char* buffer, uint32_t size) {
    kv::ClearBuffer(buffer, size);
    const kv::IniSnapshot ini = kv::SnapshotIniFile();
    return kv::CopyOut(ini.path, strlen(ini.path), buffer, size);
}

int32_t GetKorvanIniFileName(char* buffer, uint32_t size) {
    kv::ClearBuffer(buffer, size);
    const kv::IniSnapshot ini = kv::SnapshotIniFile();
    if (!ini.valid) return kv::kNotAvailable;
    // Name and extension are what follows the last separator; split by hand
    // because the runtime's split buffers hold 256 bytes, a path part 259.
    const char* fileName = ini.path;
    for (const char* p = ini.path; *p; ++p)
        if (*p == '\\' || *p == '/' || *p == ':') fileName = p + 1;
    return kv::CopyOut(fileName, strlen(fileName), buffer, size);
}
