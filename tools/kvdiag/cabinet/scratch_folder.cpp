#include "cabinet/scratch_folder.h"

#include <windows.h>

#include "platform/folder_listing.h"

namespace kvdiag {

ScratchFolder::ScratchFolder() {
    char temp[MAX_PATH];
    if (!GetTempPathA(sizeof temp, temp)) return;
    const std::string path = std::string(temp) + "kvdiag-collect-" + std::to_string(GetCurrentProcessId());
    if (CreateDirectoryA(path.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS) path_ = path;
}

ScratchFolder::~ScratchFolder() {
    if (path_.empty()) return;
    kv::platform::VisitFolder(path_, "*", [this](const WIN32_FIND_DATAA& found) {
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) DeleteFileA(File(found.cFileName).c_str());
        return true;
    });
    RemoveDirectoryA(path_.c_str());
}

}  // namespace kvdiag
