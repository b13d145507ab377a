// The exported path functions: a file name of FileNameGenerator joined to the
// product log folder.
#include <windows.h>
#include <string.h>

#include "KvLogging.h"
#include "config/product_folders.h"
#include "logging/log_folder.h"

namespace kv {

namespace {
constexpr int kLogFolderType = 1;
constexpr int kDbLogFolderType = 10;

// Kept for a crash filter that cannot wait for the configuration's locks.
SRWLOCK LastFolderLock = SRWLOCK_INIT;
char LastFolder[MAX_PATH] = "";

void RecordLogFolder(const std::string& folder) {
    if (folder.size() >= sizeof LastFolder) return;
    AcquireSRWLockExclusive(&LastFolderLock);
    memcpy(LastFolder, folder.c_str(), folder.size() + 1);
    ReleaseSRWLockExclusive(&LastFolderLock);
}
}  // namespace

bool TryLastKnownLogFolder(char* folder, size_t size) {
    if (!TryAcquireSRWLockShared(&LastFolderLock)) return false;
    const size_t length = strlen(LastFolder);
    const bool known = length > 0 && length < size;
    if (known) memcpy(folder, LastFolder, length + 1);
    ReleaseSRWLockShared(&LastFolderLock);
    return known;
}

int ResolveLogFolder(int folderType, std::string& folder) {
    folder.clear();
    if (folderType != kLogFolderType) return 0;
    if (!ReadProductFolder(kLogFolderType, folder)) {
        folder.clear();
        return -2;
    }
    if (GetFileAttributesA(folder.c_str()) == INVALID_FILE_ATTRIBUTES && !CreateFolderTree(folder.c_str())) {
        folder.clear();
        return -2;
    }
    RecordLogFolder(folder);
    return int(folder.size());
}

int32_t CopyFolderAndName(const std::string& folder, const std::string& name, char* buffer, uint32_t size) {
    if (!buffer) return -2;
    memset(buffer, 0, size);
    const std::string path = folder.empty() ? name : folder + "\\" + name;
    if (size < path.size() + 1) return -1;
    memcpy(buffer, path.c_str(), path.size() + 1);
    return int32_t(path.size());
}

}  // namespace kv

namespace {

// Resolves the folder first: on failure the caller's buffer is left untouched.
template <typename NameFn>
int32_t JoinLogPath(int32_t folderType, char* buffer, uint32_t size, NameFn name) {
    std::string folder;
    const int resolved = kv::ResolveLogFolder(folderType, folder);
    if (resolved < 0) return resolved;
    return kv::CopyFolderAndName(folder, name(), buffer, size);
}

// Copies text whole or not at all; -2 when it does not fit (the strncpy_s rule).
int32_t CopyWhole(const std::string& text, char* buffer, uint32_t size) {
    if (!buffer || size < text.size() + 1) {
        if (buffer && size) buffer[0] = '\0';
        return -2;
    }
    memcpy(buffer, text.c_str(), text.size() + 1);
    return int32_t(text.size());
}

}  // namespace

extern "C" {

int32_t GetDebugLogDirPath(int32_t folderType, char* buffer, uint32_t size) {
    std::string folder;
    const int resolved = kv::ResolveLogFolder(folderType, folder);
    if (resolved < 0) return resolved;
    return CopyWhole(folder, buffer, size);
}

int32_t GetDebugLogFilePath(int32_t index, int32_t folderType, char* buffer, uint32_t size) {
    return JoinLogPath(folderType, buffer, size, [&] { return FileNameGenerator().GetDebugLogFileName(index); });
}

int32_t GetSyslogFilePath(int32_t folderType, int32_t backup, char* buffer, uint32_t size) {
    return JoinLogPath(folderType, buffer, size, [&] { return FileNameGenerator().GetSyslogFileName(backup != 0); });
}

int32_t GetParamsFilePath(int32_t folderType, int32_t backup, char* buffer, uint32_t size) {
    return JoinLogPath(folderType, buffer, size, [&] { return FileNameGenerator().GetParamsFileName(backup != 0); });
}

int32_t GetReloadFilePath(int32_t folderType, int32_t backup, char* buffer, uint32_t size) {
    return JoinLogPath(folderType, buffer, size, [&] { return FileNameGenerator().GetReloadFileName(backup != 0); });
}

int32_t GetTraceLogPath(int32_t folderType, int32_t backup, char* buffer, uint32_t size) {
    return JoinLogPath(folderType, buffer, size,
                       [&] { return FileNameGenerator().GetTracelogFileName(backup != 0); });
}

int32_t GetKernelDatPath(int32_t folderType, char* buffer, uint32_t size) {
    return JoinLogPath(folderType, buffer, size, [] { return FileNameGenerator().GetKernelDataFileName(); });
}

int32_t GetMemoryDumpPath(int32_t folderType, char* buffer, uint32_t size) {
    return JoinLogPath(folderType, buffer, size, [] { return FileNameGenerator().GetMemoryDumpFileName(); });
}

// The runtime manager's trace log has one fixed name, whatever the component.
int32_t GetRuntimeManagerLogPath(int32_t folderType, int32_t backup, char* buffer, uint32_t size) {
    return JoinLogPath(folderType, buffer, size,
                       [&] { return std::string("tracelog.RuntimeManager") + (backup ? ".bak" : ".dat"); });
}

// Never fails on the folder: without one the bare "DBLog" name is returned.
// Only the log folder above it is created, never the DBLog folder itself.
int32_t GetAlarmServerDBLogDirPath(int32_t folderType, char* buffer, uint32_t size) {
    std::string folder;
    if (folderType == kv::kLogFolderType && kv::ReadProductFolder(kv::kDbLogFolderType, folder)) {
        if (GetFileAttributesA(folder.c_str()) == INVALID_FILE_ATTRIBUTES) kv::CreateFolderTree(folder.c_str());
    } else {
        folder.clear();
    }
    if (!folder.empty()) folder += "\\";
    return CopyWhole(folder + FileNameGenerator().GetDBLogDirName(), buffer, size);
}

}  // extern "C"
