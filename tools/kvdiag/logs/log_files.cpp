#include "logs/log_files.h"

#include <windows.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <deque>

#include "KvConfig.h"
#include "KvLogging.h"
#include "logs/product_paths.h"
#include "platform/folder_listing.h"
#include "platform/owned_handle.h"

namespace kvdiag {

namespace {

Failure CannotRead(const std::string& path, DWORD error) {
    return Failure("cannot read " + path, error)
        .Note(error == ERROR_SHARING_VIOLATION ? "held by a program that shares it with nobody" : "");
}

}  // namespace

Failure LastLines(const std::string& path, int count, std::vector<std::string>& lines) {
    lines.clear();
    const kv::platform::FileHandle file(CreateFileA(path.c_str(), GENERIC_READ,
                                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                                    OPEN_EXISTING, 0, nullptr));
    if (!file) return CannotRead(path, GetLastError());
    // Read backwards a block at a time until count line ends precede the
    // last line (or the file's start): a long log costs only its tail, and
    // at most kMaxTailBytes (the first line shown may then be cut).
    LARGE_INTEGER size{};
    GetFileSizeEx(file.get(), &size);
    constexpr int64_t kBlock = 64 * 1024;
    std::vector<std::string> blocks;  // newest first
    int64_t start = size.QuadPart;
    size_t lineEnds = 0;  // in what was read, not counting the file's last byte
    DWORD error = 0;
    while (start > 0 && count > 0 && lineEnds < size_t(count) && size.QuadPart - start < kMaxTailBytes) {
        const int64_t length = start < kBlock ? start : kBlock;
        start -= length;
        std::string block(size_t(length), '\0');
        LARGE_INTEGER at{};
        at.QuadPart = start;
        DWORD got = 0;
        if (!SetFilePointerEx(file.get(), at, nullptr, FILE_BEGIN) ||
            !ReadFile(file.get(), &block[0], DWORD(length), &got, nullptr)) {
            error = GetLastError();
            break;
        }
        block.resize(got);
        const size_t counted = blocks.empty() && !block.empty() && block.back() == '\n' ? block.size() - 1 : block.size();
        lineEnds += size_t(std::count(block.begin(), block.begin() + long(counted), '\n'));
        blocks.push_back(std::move(block));
    }
    std::string tail;
    for (auto it = blocks.rbegin(); it != blocks.rend(); ++it) tail += *it;
    if (error) return CannotRead(path, error);
    std::deque<std::string> found;
    size_t from = 0;
    while (from < tail.size()) {
        size_t end = tail.find('\n', from);
        if (end == std::string::npos) end = tail.size();
        std::string line = tail.substr(from, end - from);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        found.push_back(std::move(line));
        from = end + 1;
    }
    // The first piece may be a line cut at the block's start: only whole lines count.
    while (found.size() > size_t(count)) found.pop_front();
    lines.assign(found.begin(), found.end());
    return {};
}

std::vector<std::string> DebugLogChain(const std::string& component) {
    constexpr int kMaxHistoryFiles = 10;
    SetComponentName(component.c_str());
    std::vector<std::string> chain;
    for (int i = 0; i <= kMaxHistoryFiles; ++i) {
        char name[MAX_PATH];
        if (GetDebugLogFilePath(i == 0 ? -1 : i, 0, name, sizeof name) < 0) return {};
        const std::string path = InLogFolder(name);
        if (path.empty()) return {};
        chain.push_back(path);
    }
    return chain;
}

bool DebugLogComponent(const std::string& fileName, std::string& component) {
    if (_stricmp(fileName.c_str(), "debug.log") == 0) {
        component.clear();
        return true;
    }
    const size_t n = fileName.size();
    if (n <= 10 || _strnicmp(fileName.c_str(), "debug.", 6) != 0 || _stricmp(fileName.c_str() + n - 4, ".log") != 0)
        return false;
    component = fileName.substr(6, n - 10);
    return true;
}

// The components of every debug log in the log folder: "debug.log" is the
// one without a component, "debug.<component>.log" the others.
std::vector<std::string> DebugLogComponents() {
    std::vector<std::string> components;
    std::string folder;
    if (!LogFolder(folder)) return components;
    kv::platform::VisitFolder(folder, "debug*.log", [&](const WIN32_FIND_DATAA& found) {
        std::string component;
        if (DebugLogComponent(found.cFileName, component)) components.push_back(component);
        return true;
    });
    return components;
}

}  // namespace kvdiag
