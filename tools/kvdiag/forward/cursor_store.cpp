#include "forward/cursor_store.h"

#include <windows.h>
#include <stdio.h>

#include "common/failure.h"
#include "forward/state_file.h"
#include "platform/file_replace.h"
#include "platform/folder_listing.h"

namespace kvdiag {

namespace {

constexpr char kHeader[] = "kvdiag forward cursor 1\n";
constexpr size_t kMaxCursorBytes = 64 * 1024;  // a cursor is a few lines; more is not ours
constexpr size_t kMaxHeadBytes = 256;          // the follower keeps 64
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

int HexDigit(char c) {
    return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// A whole number in base 10 or 16 up to the blank or line end at `at`
// (moved past it); false for no digits, another character or an overflow.
bool ReadNumber(const std::string& text, size_t& at, unsigned base, uint64_t& value) {
    const size_t start = at;
    value = 0;
    for (; at < text.size() && text[at] != ' ' && text[at] != '\n'; ++at) {
        const int digit = HexDigit(text[at]);
        if (digit < 0 || unsigned(digit) >= base || value > (UINT64_MAX - unsigned(digit)) / base) return false;
        value = value * base + unsigned(digit);
    }
    return at > start && at < text.size() && (++at, true);
}

bool ReadHexBytes(const std::string& text, size_t& at, std::string& bytes) {
    bytes.clear();
    for (; at + 1 < text.size() && text[at] != '\n'; at += 2) {
        const int high = HexDigit(text[at]), low = HexDigit(text[at + 1]);
        if (high < 0 || low < 0 || bytes.size() == kMaxHeadBytes) return false;
        bytes += char(high * 16 + low);
    }
    return at < text.size() && text[at++] == '\n';
}

// "IDENTITY OFFSET HEAD" lines after the header: identity in hex, offset in
// decimal, head in hex; the last line ends with a line feed like the others.
bool Parse(const std::string& text, LogPosition& position, std::string& problem) {
    if (text.compare(0, sizeof kHeader - 1, kHeader) != 0) {
        problem = "it does not begin with \"kvdiag forward cursor 1\"";
        return false;
    }
    for (size_t at = sizeof kHeader - 1, line = 2; at < text.size(); ++line) {
        LogFollower::Seen seen{};
        if (!ReadNumber(text, at, 16, seen.identity.index) || text[at - 1] != ' ' ||
            !ReadNumber(text, at, 10, seen.consumed) || text[at - 1] != ' ' || !ReadHexBytes(text, at, seen.head)) {
            problem = "line " + std::to_string(line) + " is not a file's position";
            return false;
        }
        position.push_back(seen);
    }
    return true;
}

}  // namespace

SavedCursor CursorStore::Load(const std::string& logName) const {
    SavedCursor cursor;
    cursor.logName = logName;
    std::string text;
    const DWORD error = ReadStateFile(PathOf(logName), kMaxCursorBytes, text);
    if (error == ERROR_FILE_NOT_FOUND) return cursor;
    cursor.state = CursorState::Damaged;
    if (error == ERROR_FILE_TOO_LARGE) cursor.problem = "it is larger than a cursor can be";
    else if (error == kErrorStoppedOnLink) cursor.problem = "it is a link, which the forwarder does not follow";
    else if (error) cursor.problem = Failure("it cannot be read", error).text();
    else if (Parse(text, cursor.position, cursor.problem)) cursor.state = CursorState::Loaded;
    if (cursor.state != CursorState::Loaded) cursor.position.clear();
    return cursor;
}

bool CursorStore::Save(const std::string& logName, const LogPosition& position) const {
    std::string text = kHeader;
    for (const LogFollower::Seen& seen : position) {
        char numbers[64];
        snprintf(numbers, sizeof numbers, "%llx %llu ", static_cast<unsigned long long>(seen.identity.index),
                 static_cast<unsigned long long>(seen.consumed));
        text += numbers + ToHex(seen.head) + "\n";
    }
    return kv::platform::ReplaceFileDurably(PathOf(logName), text) == 0;
}

std::vector<SavedCursor> CursorStore::LoadAll() const {
    std::vector<SavedCursor> all;
    kv::platform::VisitFolder(folder_, "*.cursor", [&](const WIN32_FIND_DATAA& found) {
        const std::string name = found.cFileName;
        const size_t base = name.size() - (sizeof kSuffix - 1);
        // The pattern also matches "x.cursorfoo" by its short name.
        if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) && name.size() > sizeof kSuffix - 1 &&
            !_stricmp(name.c_str() + base, kSuffix))
            all.push_back(Load(name.substr(0, base)));
        return true;
    });
    return all;
}

}  // namespace kvdiag
