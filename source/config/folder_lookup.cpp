// GetKorvanFolderByType and its shortcuts: the folder, created when missing;
// ReadKorvanFolderByType: the same folder, never created.
#include <windows.h>

#include "KvConfig.h"
#include "config/buffer_result.h"
#include "config/product_folders.h"

int32_t GetKorvanFolderByType(int32_t code, char* buffer, uint32_t size) {
    kv::ClearBuffer(buffer, size);
    std::string folder;
    if (!kv::ReadProductFolder(code, folder)) return kv::kNotAvailable;
    if (GetFileAttributesA(folder.c_str()) == INVALID_FILE_ATTRIBUTES && !kv::CreateFolderTree(folder.c_str()))
        return kv::kNotAvailable;
    return kv::CopyOut(folder.data(), folder.size(), buffer, size);
}

int32_t ReadKorvanFolderByType(int32_t code, char* buffer, uint32_t size) {
    kv::ClearBuffer(buffer, size);
    std::string folder;
    if (!kv::ReadProductFolder(code, folder)) return kv::kNotAvailable;
    return kv::CopyOut(folder.data(), folder.size(), buffer, size);
}

int32_t GetConfigFolder(char* buffer, uint32_t size) { return GetKorvanFolderByType(KvFolderConfig, buffer, size); }
int32_t GetKorvanBinFolder(char* buffer, uint32_t size) { return GetKorvanFolderByType(KvFolderBin, buffer, size); }
int32_t GetDataFolder(char* buffer, uint32_t size) { return GetKorvanFolderByType(KvFolderData, buffer, size); }
int32_t GetUserFolder(char* buffer, uint32_t size) { return GetKorvanFolderByType(KvFolderUser, buffer, size); }
int32_t GetStarterFolder(char* buffer, uint32_t size) { return GetKorvanFolderByType(KvFolderStarter, buffer, size); }
int32_t GetLastDatabaseFolder(char* buffer, uint32_t size) {
    return GetKorvanFolderByType(KvFolderLastDatabase, buffer, size);
}
int32_t GetKorvanLogFolder(char* buffer, uint32_t size) { return GetKorvanFolderByType(KvFolderLogs, buffer, size); }
int32_t GetDriversLogFolder(char* buffer, uint32_t size) {
    return GetKorvanFolderByType(KvFolderDriversLogs, buffer, size);
}
