#include "forward/cursor_store.h"

#include <windows.h>
#include <stdio.h>
#include <stdlib.h>

namespace kvdiag {

namespace {

constexpr char kHeader[] = "kvdiag forward cursor 1";
constexpr size_t kMaxCursorBytes = 64 * 1024;  // a cursor is a few lines; more is not ours
constexpr char kSuffix[] = ".cursor";

std::string ToHex(const std::string& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned char c : bytes) {
        hex += digits[c >> 4];
        hex += digits[c & 15];
    }
    return hex;
}

bool FromHex(const std::string& hex, std::string& bytes) {
    if (hex.size() % 2) return false;
    bytes.clear();
    for (size_t i = 0; i < hex.size(); i += 2) {
        char pair[3] = {hex[i], hex[i + 1], 0}, *end = nullptr;
        const long value = strtol(pair, &end, 16);
        if (*end) return false;
        bytes += char(value);
    }
    return true;
}

std::string ReadSmallFile(const std::string& path) {
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return {};
    std::string text(kMaxCursorBytes, '\0');
    DWORD got = 0;
    if (!ReadFile(file, &text[0], DWORD(text.size()), &got, nullptr)) got = 0;
    CloseHandle(file);
    text.resize(got);
    return text;
}

}  // namespace

bool CursorStore::Load(const std::string& logName, LogPosition& position) const {
    const std::string text = ReadSmallFile(PathOf(logName));
    position.clear();
    size_t at = text.find('\n');
    if (at == std::string::npos || text.compare(0, at, kHeader) != 0) return false;
    for (size_t next; (next = text.find('\n', ++at)) != std::string::npos; at = next) {
        // "IDENTITY OFFSET HEAD": identity in hex, offset in decimal, head in hex.
        const std::string line = text.substr(at, next - at);
        char* end = nullptr;
        LogFollower::Seen seen{};
        seen.identity.index = strtoull(line.c_str(), &end, 16);
        if (*end != ' ') return false;
        seen.consumed = strtoull(end + 1, &end, 10);
        if (*end != ' ' || !FromHex(end + 1, seen.head)) return false;
        position.push_back(seen);
    }
    return true;
}

bool CursorStore::Save(const std::string& logName, const LogPosition& position) const {
    std::string text = std::string(kHeader) + "\n";
    for (const LogFollower::Seen& seen : position) {
        char numbers[64];
        snprintf(numbers, sizeof numbers, "%llx %llu ", static_cast<unsigned long long>(seen.identity.index),
                 static_cast<unsigned long long>(seen.consumed));
        text += numbers + ToHex(seen.head) + "\n";
    }
    const std::string path = PathOf(logName), aside = path + ".new";
    HANDLE file = CreateFileA(aside.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    const bool ok = WriteFile(file, text.data(), DWORD(text.size()), &written, nullptr) && written == text.size() &&
                    FlushFileBuffers(file);
    CloseHandle(file);
    return ok && MoveFileExA(aside.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

std::vector<std::pair<std::string, LogPosition>> CursorStore::LoadAll() const {
    std::vector<std::pair<std::string, LogPosition>> all;
    WIN32_FIND_DATAA found;
    const HANDLE search = FindFirstFileA((folder_ + "\\*" + kSuffix).c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return all;
    do {
        std::string name = found.cFileName;
        if (name.size() <= sizeof kSuffix - 1 || name.compare(name.size() - (sizeof kSuffix - 1), std::string::npos, kSuffix)) continue;
        name.resize(name.size() - (sizeof kSuffix - 1));
        LogPosition position;
        if (Load(name, position)) all.emplace_back(name, position);
    } while (FindNextFileA(search, &found));
    FindClose(search);
    return all;
}

}  // namespace kvdiag
