// The process-wide record of where the product INI file is and whether it was
// validated, and the file check shared by validation and setting the path.
#pragma once

#include <stdint.h>

#include <mutex>

namespace kv {

#pragma GCC visibility push(hidden)  // defined in this DLL: reached directly (see process_state.h)

constexpr size_t kIniPathBytes = 260;

struct IniFileLocation {
    char path[kIniPathBytes] = "";  // absolute when set; as found when read from the registry
    bool valid = false;             // validated: may be read
    bool tolerateMissing = false;   // a missing file validates
};

// Guards IniLocation. Taken before RootKeyLock where both are held.
extern std::mutex IniFileLock;
extern IniFileLocation IniLocation;

// Path and valid as one consistent copy, taken under the lock.
struct IniSnapshot {
    char path[kIniPathBytes];
    bool valid;
};
IniSnapshot SnapshotIniFile();
// The same without waiting: false when another thread holds IniFileLock.
bool TrySnapshotIniFile(IniSnapshot& snapshot);

// True when the file opens for reading and (unless readOnly) for appending,
// or when it is missing and tolerateMissing is set. Fails with the thread's
// last error 19 (write-protected) or 2 (missing). The file is not modified.
bool CheckIniFile(const char* path, bool readOnly, bool tolerateMissing);

// The validation itself (takes IniFileLock): 1 or 0, last error as above.
int32_t ValidateIniFile(bool readOnly);

#pragma GCC visibility pop

}  // namespace kv
