// GetKorvanProfilePath: "<RUN folder>\<profile name>.ini".
#include <windows.h>
#include <stdio.h>
#include <string.h>

#include "KvConfig.h"
#include "config/buffer_result.h"
#include "config/product_folders.h"
#include "config/product_ini_reader.h"

int32_t GetKorvanProfilePath(char* buffer, uint32_t size) {
    kv::ClearBuffer(buffer, size);
    char profile[kv::kIniValueBytes];
    if (kv::ReadProductIniKey("RuntimeManager", "Profile", profile) == 0) return 0;
    std::string runFolder;
    if (!kv::ReadProductFolder(KvFolderRun, runFolder)) return 0;
    if (GetFileAttributesA(runFolder.c_str()) == INVALID_FILE_ATTRIBUTES && !kv::CreateFolderTree(runFolder.c_str()))
        return 0;
    // The path must fit into size - 1 bytes whole: an overflow is an error,
    // never a cut path.
    const size_t length = runFolder.size() + 1 + strlen(profile) + 4;
    if (!buffer || size < 2 || length + 1 > size - 1) return 0;
    snprintf(buffer, size - 1, "%s\\%s.ini", runFolder.c_str(), profile);
    return int32_t(strnlen(buffer, size));
}
