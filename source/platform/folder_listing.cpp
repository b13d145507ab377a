#include "platform/folder_listing.h"

namespace kv {
namespace platform {

DWORD ListFolder(const std::string& folder, const char* pattern, std::vector<FolderEntry>& entries) {
    entries.clear();
    return VisitFolder(folder, pattern, [&](const WIN32_FIND_DATAA& found) {
        FolderEntry entry;
        entry.name = found.cFileName;
        entry.attributes = found.dwFileAttributes;
        entry.size = (static_cast<unsigned long long>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
        entry.written = found.ftLastWriteTime;
        entries.push_back(std::move(entry));
        return true;
    });
}

}  // namespace platform
}  // namespace kv
