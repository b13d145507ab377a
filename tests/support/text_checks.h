// Checks on logs and program output; the whole text is shown on failure.
#pragma once

#include <stdlib.h>

#include <string>
#include <vector>

#define EXPECT_HAS(text, what) EXPECT_NE(std::string::npos, std::string(text).find(what)) << (text)
#define EXPECT_LACKS(text, what) EXPECT_EQ(std::string::npos, std::string(text).find(what)) << (text)

namespace kvtest {

using Lines = std::vector<std::string>;

// The lines of a text without their line ends (LF or CR LF).
inline Lines SplitLines(const std::string& text) {
    Lines lines;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(at, end - at - (end > at && text[end - 1] == '\r')));
        at = end + 1;
    }
    return lines;
}

inline size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

// The rest of the line that starts at the first occurrence of what ("" when absent).
inline std::string LineFrom(const std::string& text, const std::string& what) {
    const size_t at = text.find(what);
    return at == std::string::npos ? std::string() : text.substr(at, text.find_first_of("\r\n", at) - at);
}

// The number printed right after the first occurrence of key (0 when absent),
// as a host or kvdiag prints a pid, a thread id or an address.
inline unsigned long long NumberAfter(const std::string& text, const std::string& key, int base = 10) {
    const size_t at = text.find(key);
    return at == std::string::npos ? 0 : strtoull(text.c_str() + at + key.size(), nullptr, base);
}

// The text with every run of blanks cut to one, so checks on a tool's table
// do not depend on its column widths.
inline std::string Squeezed(const std::string& text) {
    std::string out;
    for (char c : text)
        if (c != ' ' || out.empty() || out.back() != ' ') out += c;
    return out;
}

// True when every part occurs in text, each after the one before.
inline bool InOrder(const std::string& text, const Lines& parts) {
    size_t at = 0;
    for (const auto& part : parts) {
        if ((at = text.find(part, at)) == std::string::npos) return false;
        at += part.size();
    }
    return true;
}

}  // namespace kvtest
