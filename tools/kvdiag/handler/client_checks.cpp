#include "handler/client_checks.h"

#include <ctype.h>
#include <string.h>

#include "platform/owned_handle.h"

namespace kvdiag {
namespace {

bool StartsAsLocal(const char* path) {
    return isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':' && path[2] == '\\' && !strchr(path + 2, ':');
}

// The file or folder's attributes; INVALID_FILE_ATTRIBUTES when missing.
DWORD AttributesOf(const std::string& path) { return GetFileAttributesA(path.c_str()); }

}  // namespace

Failure IsLocalPath(const std::string& path) {
    char full[MAX_PATH];
    const DWORD length = StartsAsLocal(path.c_str()) ? GetFullPathNameA(path.c_str(), sizeof full, full, nullptr) : 0;
    const char root[] = {path.empty() ? '?' : path[0], ':', '\\', 0};
    const UINT drive = GetDriveTypeA(root);
    if (length == 0 || length >= sizeof full || !StartsAsLocal(full))
        return Failure("\"" + path + "\" is not a full local path");
    if (drive == DRIVE_REMOTE) return Failure("\"" + path + "\" is on a network drive");
    if (drive == DRIVE_NO_ROOT_DIR || drive == DRIVE_UNKNOWN)
        return Failure("\"" + path + "\" is on no drive of this machine");
    return {};
}

Failure ClientLogFolder(const std::string& iniPath, std::string& folder) {
    if (Failure failure = IsLocalPath(iniPath)) return failure;
    const DWORD ini = AttributesOf(iniPath);
    if (ini == INVALID_FILE_ATTRIBUTES || (ini & FILE_ATTRIBUTE_DIRECTORY)) {
        return Failure("the INI file \"" + iniPath + "\" does not exist");
    }
    char logs[MAX_PATH] = "";
    GetPrivateProfileStringA("KVEDIT", "LOGS", "", logs, sizeof logs, iniPath.c_str());
    folder = logs;
    if (folder.empty()) {
        return Failure("the INI file \"" + iniPath + "\" names no log folder");
    }
    if (Failure failure = IsLocalPath(folder)) return failure;
    const DWORD attributes = AttributesOf(folder);
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        return Failure("the log folder \"" + folder + "\" does not exist");
    }
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) {
        return Failure("the log folder \"" + folder + "\" is a link");
    }
    return {};
}

HANDLE DuplicateClientEvent(HANDLE process, uint64_t value) {
    kv::platform::KernelHandle own;
    if (!DuplicateHandle(process, reinterpret_cast<HANDLE>(static_cast<uintptr_t>(value)), GetCurrentProcess(), own.put(),
                         SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, 0))
        return nullptr;
    // Only an event can be reset: a process, thread, file or mutex handle
    // (whose access bits may overlap an event's) fails here. Resetting is
    // harmless at registration: nothing has crashed yet.
    if (!ResetEvent(own.get())) return nullptr;
    return own.release();
}

bool IsClientData(HANDLE process, uint64_t address, size_t size) {
    MEMORY_BASIC_INFORMATION region{};
    if (address == 0 || VirtualQueryEx(process, reinterpret_cast<void*>(static_cast<uintptr_t>(address)), &region,
                                       sizeof region) != sizeof region)
        return false;
    const uint64_t end = reinterpret_cast<uint64_t>(region.BaseAddress) + region.RegionSize;
    const DWORD writable = PAGE_READWRITE | PAGE_WRITECOPY;
    return region.State == MEM_COMMIT && (region.Protect & writable) && !(region.Protect & PAGE_GUARD) &&
           address + size > address && address + size <= end;
}

}  // namespace kvdiag
