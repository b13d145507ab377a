#include "forward/record_limit.h"

#include <windows.h>

namespace kvdiag {

namespace {

// Room kept in each part for its marker, "[part 123456/123456] " at most.
constexpr size_t kMarkerRoom = 22;

// The largest cut at or before `at` that splits no character of the ANSI
// code page: not between a lead byte and its trail byte, nor (in UTF-8) in
// a sequence.
size_t CharacterBoundary(const std::string& text, size_t from, size_t at) {
    if (GetACP() == CP_UTF8) {
        while (at > from + 1 && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) --at;
        return at;
    }
    size_t boundary = from;
    for (size_t i = from; i < at;) {
        i += IsDBCSLeadByte(static_cast<BYTE>(text[i])) && i + 1 < text.size() ? 2 : 1;
        if (i <= at) boundary = i;
    }
    return boundary > from ? boundary : at;
}

// The size a collector counts: rsyslog escapes a control character on
// receipt ("#012" for a line feed) before it applies its limit.
size_t CountedSize(const std::string& message) {
    size_t size = message.size();
    for (char c : message) size += c == '\n' ? 3 : 0;
    return size;
}

}  // namespace

// The record with another text, for its parts.
static std::string MessageWithText(SyslogRecord record, std::string text, const std::string& hostName) {
    record.text = std::move(text);
    return SyslogMessage(record, hostName);
}

std::vector<std::string> LimitedMessages(const SyslogRecord& record, const std::string& hostName, size_t maxBytes) {
    std::string whole = SyslogMessage(record, hostName);
    if (CountedSize(whole) <= maxBytes) return {std::move(whole)};
    const size_t header = MessageWithText(record, "", hostName).size() + 1;
    const size_t limit = maxBytes > kMarkerRoom ? maxBytes - kMarkerRoom : 0;
    // At least some text a part, whatever the header: the entry gets through,
    // a little over the limit, rather than not at all.
    const size_t room = limit > header + 64 ? limit - header : 64;
    std::vector<std::string> texts;
    const std::string& text = record.text;
    for (size_t from = 0; from < text.size();) {
        // Each byte of the log counts one to four bytes in the message
        // (UTF-8, "#ooo"): a piece the size of the room, shortened by what
        // its message is over, fits.
        size_t end = from + std::min(room, text.size() - from);
        for (int attempt = 0; attempt < 2; ++attempt) {
            const size_t lineEnd = text.rfind('\n', end - 1);
            if (end < text.size() && lineEnd != std::string::npos && lineEnd > from + (end - from) / 2) end = lineEnd;
            else if (end < text.size()) end = CharacterBoundary(text, from, end);
            const size_t size = CountedSize(MessageWithText(record, text.substr(from, end - from), hostName));
            if (size <= limit || end - from <= 1) break;
            end = from + std::max<size_t>(1, (end - from) > size - limit ? (end - from) - (size - limit) : 1);
        }
        texts.push_back(text.substr(from, end - from));
        from = end + (end < text.size() && text[end] == '\n');
    }
    std::vector<std::string> parts;
    for (size_t i = 0; i < texts.size(); ++i) {
        const std::string marker = "[part " + std::to_string(i + 1) + "/" + std::to_string(texts.size()) + "] ";
        parts.push_back(MessageWithText(record, marker + texts[i], hostName));
    }
    return parts;
}

}  // namespace kvdiag
