// KvConfig.h - product configuration: the registry (always the 32-bit view),
// the product INI file's location and the product folders it names, INI value
// access, and the creation of default INI and profile files.
//
// Buffer results of every function below that fills a caller's buffer: the
// buffer is cleared over its whole size first; then the length of the text
// (without its terminator), -1 when the buffer is too small (it needs
// length + 1 bytes; nothing is copied), -2 when the value is not available,
// -3 only from GetKorvanIniFilePath (path copied, but not validated). A null
// buffer is treated as a buffer of size 0.
#pragma once

#include <windows.h>
#include <stdint.h>
#include "KvExport.h"

// ---------------------------------------------------------------------------
// Registry. Every open goes to the 32-bit view, so 32-bit and 64-bit product
// processes see the same keys. Keys are never created here.

// Results of the registry functions and of every RegKey operation.
typedef enum RegAccessResult {
    RegAccessSuccess = 0,
    RegAccessFailed = 1,   // not open, read-only for a write, too long, any other error
    RegAccessNotFound = 2  // the key or the value does not exist
} RegAccessResult;

// One 4-byte value (its type is not checked): 0, 1 or 2.
KVDH_C_API int32_t RegistryReadValueAsDword(HKEY root, const char* subKey, const char* name, uint32_t* value);
// Writes a REG_DWORD into an existing key: 0 or 1.
KVDH_C_API int32_t RegistryWriteValueAsDword(HKEY root, const char* subKey, const char* name, uint32_t value);
// Reads a value of at most 260 bytes as text. *size: the buffer's size in,
// the text's length out (on success). The buffer is cleared over *size bytes
// first, so *size must be right even when an argument is null. A text that
// does not fit gives 1 with the buffer cleared and *size unchanged.
KVDH_C_API int32_t RegistryReadValueAsString(HKEY root, const char* subKey, const char* name, char* buffer,
                                             uint32_t* size);

// ---------------------------------------------------------------------------
// Product INI file location and product folders. Call order: set the path
// (or leave it empty to take "DefaultINIPath" from the product's root key),
// then validate; folder lookups answer only after a successful validation.

// Folder codes of GetKorvanFolderByType (section "KVEDIT" of the INI file).
enum KorvanFolderType {
    KvFolderConfig = 0,        // "CONFIG"
    KvFolderLogs = 1,          // "LOGS"
    KvFolderDriversLogs = 2,   // "LOGS" + "\Drivers"
    KvFolderBin = 3,           // "BIN"
    KvFolderData = 6,          // "DATA"
    KvFolderUser = 7,          // "USER"
    KvFolderStarter = 8,       // "STARTER"
    KvFolderLastDatabase = 9,  // "LASTDATABASEPATH"
    KvFolderLogsAgain = 10,    // "LOGS"
    KvFolderRun = 11           // "RUN"
};

// The folder exactly as the INI file names it, created (with its parents) when
// missing: length, -1, or -2 (unknown code, not validated, key missing or
// empty, folder cannot be created).
KVDH_C_API int32_t GetKorvanFolderByType(int32_t code, char* buffer, uint32_t size);
// The same folder as the INI file names it, whether it exists or not: creates
// nothing (for tools that report on an installation without changing it).
// Length, -1, or -2 (unknown code, not validated, key missing or empty).
KVDH_C_API int32_t ReadKorvanFolderByType(int32_t code, char* buffer, uint32_t size);
KVDH_C_API int32_t GetConfigFolder(char* buffer, uint32_t size);
KVDH_C_API int32_t GetKorvanBinFolder(char* buffer, uint32_t size);
KVDH_C_API int32_t GetDataFolder(char* buffer, uint32_t size);
KVDH_C_API int32_t GetUserFolder(char* buffer, uint32_t size);
KVDH_C_API int32_t GetStarterFolder(char* buffer, uint32_t size);
KVDH_C_API int32_t GetLastDatabaseFolder(char* buffer, uint32_t size);
KVDH_C_API int32_t GetKorvanLogFolder(char* buffer, uint32_t size);
KVDH_C_API int32_t GetDriversLogFolder(char* buffer, uint32_t size);

// The INI path: its length when validated; -3 with the path copied when it is
// not validated (so a caller can show it); -1 when it does not fit.
KVDH_C_API int32_t GetKorvanIniFilePath(char* buffer, uint32_t size);
// The INI path as stored, validated or not: length (0 when empty) or -1.
KVDH_C_API int32_t GetKorvanIniFilePathAsConfigured(char* buffer, uint32_t size);
// File name and extension of the validated INI path: length, -1 or -2.
KVDH_C_API int32_t GetKorvanIniFileName(char* buffer, uint32_t size);
// "<RUN folder>\<[RuntimeManager] Profile>.ini": its length, 0 when there is
// none or it does not fit into size - 1 bytes.
KVDH_C_API int32_t GetKorvanProfilePath(char* buffer, uint32_t size);

// Stores the path made absolute (a changed path clears the validation) and
// checks the file: 1 when it opens for reading and writing (mode 1: for
// reading), else 0. A null or over-long path gives 0 and changes nothing.
KVDH_C_API int32_t SetKorvanIniFilePath(const char* path);
KVDH_C_API int32_t SetKorvanIniFilePathEx(const char* path, int32_t mode);
// 1 when the INI file opens for reading and writing (ValidateKorvanIniFileEx(1):
// for reading); else 0 with the last error 19 (read-only) or 2 (missing).
KVDH_C_API int32_t ValidateKorvanIniFile(void);
KVDH_C_API int32_t ValidateKorvanIniFileEx(int32_t mode);
KVDH_C_API void InvalidateKorvanIniFile(void);
// From now on, for the life of the process, a missing INI file validates.
KVDH_C_API void TolerateMissingIniFile(void);

// "Software\Korvan\SCADA Installs\8.40" (under HKEY_LOCAL_MACHINE): length or -1.
KVDH_C_API int32_t GetRootRegistryKeyPath(char* buffer, uint32_t size);
KVDH_C_API int32_t GetMajorVersion(void);
KVDH_C_API int32_t GetMinorVersion(void);

// ---------------------------------------------------------------------------
// INI values of any file (path first). String reads go through a 1024-byte
// buffer: the result is the count copied, 0 for nothing, or -1 (buffer
// emptied) when the text needs more than size - 1 bytes. Lists are NUL-
// separated strings ended by an extra NUL.

// The section's "key=value" lines.
KVDH_C_API int32_t IniReadSectionAsString(const char* path, const char* section, char* buffer, uint32_t size);
// section null: all section names; key null: the section's key names;
// otherwise the key's value, or defaultValue when the key is missing.
KVDH_C_API int32_t IniReadValueAsString(const char* path, const char* section, const char* key, char* buffer,
                                        uint32_t size, const char* defaultValue);
KVDH_C_API int32_t IniReadValueAsInt(const char* path, const char* section, const char* key, int32_t defaultValue);
// The value (or the default) clamped to [minValue, maxValue].
KVDH_C_API int32_t IniReadValueAsIntRange(const char* path, const char* section, const char* key,
                                          int32_t defaultValue, int32_t minValue, int32_t maxValue);
// Replaces the section's keys with length bytes of "key=value\0...\0" data: 1 or 0.
KVDH_C_API int32_t IniWriteSectionAsString(const char* path, const char* section, const char* data, int32_t length);
KVDH_C_API int32_t IniWriteValueAsInt(const char* path, const char* section, const char* key, int32_t value);
// key null deletes the section, value null deletes the key: 1 or 0.
KVDH_C_API int32_t IniWriteValueAsString(const char* path, const char* section, const char* key, const char* value);

// The same on the product INI file. When it is not validated the reads answer
// with the caller's default (IntRange: not clamped; Bool: normalised to 1/0;
// string: the default copied, -1 when it does not fit) and the writes give 0.
KVDH_C_API int32_t KorvanIniReadSectionAsString(const char* section, char* buffer, uint32_t size);
KVDH_C_API int32_t KorvanIniReadValueAsString(const char* section, const char* key, char* buffer, uint32_t size,
                                              const char* defaultValue);
KVDH_C_API int32_t KorvanIniReadValueAsInt(const char* section, const char* key, int32_t defaultValue);
KVDH_C_API int32_t KorvanIniReadValueAsIntRange(const char* section, const char* key, int32_t defaultValue,
                                                int32_t minValue, int32_t maxValue);
// 1 for "TRUE", "YES" or "1" (any case), 0 for any other text; a key present
// with an empty value gives defaultValue exactly as passed.
KVDH_C_API int32_t KorvanIniReadValueAsBool(const char* section, const char* key, int32_t defaultValue);
KVDH_C_API int32_t KorvanIniWriteValueAsInt(const char* section, const char* key, int32_t value);
KVDH_C_API int32_t KorvanIniWriteSectionAsString(const char* section, const char* data, int32_t length);
KVDH_C_API int32_t KorvanIniWriteValueAsString(const char* section, const char* key, const char* value);

// Start-up functions run once, in registration order, by InitLib_InitAll,
// which stops at the first non-zero result, returns it (0 when all succeeded)
// and empties the list.
typedef int (*InitLibFunction)(void);
KVDH_C_API void InitLib_Register(InitLibFunction function);
KVDH_C_API int32_t InitLib_InitAll(void);

// ---------------------------------------------------------------------------
// Default files. Both create a new file only (an existing one is never
// touched) and fill section "KVEDIT" with "BIN" (this library's folder) and,
// when the INI file lies in a folder named "Config", the folders beside it.

// Creates the INI file at the stored INI path, then validates it: 1 or 0.
KVDH_C_API int32_t CreateDefaultIniFile(void);
// Creates a profile at path (adds "INCREMENTALCOMPILE"=1): 1 or 0.
KVDH_C_API int32_t CreateDefaultProfile(const char* path);

#ifdef __cplusplus
#include <string>
#include <vector>

// One existing registry key, opened in the 32-bit view for reading (readOnly)
// or for reading and writing, and closed at destruction. Assignment copies the
// handle as it is: both objects then close it, so assign only when one of
// them is not destroyed while open.
class KVDH_API RegKey {
public:
    RegKey(const std::string& subKey, HKEY root, bool readOnly);
    ~RegKey();
    RegKey(const RegKey& other) = default;
    RegKey& operator=(const RegKey& other);

    bool IsOpen() const { return isOpen; }

    // Exactly 4 bytes of any type.
    RegAccessResult ReadValueAsDword(const std::string& name, uint32_t& value);
    RegAccessResult WriteValueAsDword(const std::string& name, uint32_t value);
    // At most 260 bytes; longer values give RegAccessFailed.
    RegAccessResult ReadValueAsString(const std::string& name, std::string& value);
    // REG_SZ, REG_EXPAND_SZ (not expanded) or REG_MULTI_SZ of any length.
    RegAccessResult ReadValueAsMultiString(const std::string& name, std::vector<std::string>& values);
    // Names of the direct sub-keys, in the system's order.
    RegAccessResult EnumerateKeys(std::vector<std::string>& names);

private:
    HKEY handle;
    bool readOnly;
    bool isOpen;
};
#endif
