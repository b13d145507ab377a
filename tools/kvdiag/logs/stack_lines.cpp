#include "logs/stack_lines.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace kvdiag {
namespace {

bool IsHex(const std::string& text, size_t from, size_t count) {
    if (from + count > text.size()) return false;
    for (size_t i = from; i < from + count; ++i)
        if (!isxdigit(static_cast<unsigned char>(text[i]))) return false;
    return true;
}

// Splits "a b c " into its blank-ended tokens; false when the text does not
// end in a blank or holds two blanks in a row.
bool Tokens(const std::string& message, std::vector<std::string>& tokens) {
    tokens.clear();
    size_t at = 0;
    while (at < message.size()) {
        const size_t blank = message.find(' ', at);
        if (blank == std::string::npos || blank == at) return false;
        tokens.push_back(message.substr(at, blank - at));
        at = blank + 1;
    }
    return !tokens.empty() && tokens.size() <= 4;
}

// The tokens of a stack line, each parsed by parse(token, value); false when
// the message is no such line or a token does not parse.
template <class Value, class Parse>
bool ParseTokens(const std::string& message, std::vector<Value>& values, Parse parse) {
    std::vector<std::string> tokens;
    if (!Tokens(message, tokens)) return false;
    values.clear();
    for (const auto& t : tokens) {
        Value value = 0;
        if (!parse(t, value)) return false;
        values.push_back(value);
    }
    return true;
}

}  // namespace

std::string MessageOf(const std::string& line) {
    // "YYYY-MM-DD HH:MM:SS.mmm" (23), a tab, "+hh:mm" (6) and a blank
    if (line.size() >= 31 && line[4] == '-' && line[10] == ' ' && line[23] == '\t' &&
        (line[24] == '+' || line[24] == '-') && line[30] == ' ')
        return line.substr(31);
    return line;
}

bool ParseStackWords(const std::string& message, std::vector<uint32_t>& words) {
    return ParseTokens(message, words, [](const std::string& t, uint32_t& word) {
        if (t == "00000000") return true;
        if (t.size() != 10 || t[0] != '0' || t[1] != 'x' || !IsHex(t, 2, 8)) return false;
        word = uint32_t(strtoul(t.c_str() + 2, nullptr, 16));
        return true;
    });
}

bool ParseStackAddresses(const std::string& message, std::vector<uint64_t>& addresses) {
    return ParseTokens(message, addresses, [](const std::string& t, uint64_t& address) {
        if (t.size() != 18 || t[0] != '0' || t[1] != 'x' || !IsHex(t, 2, 16)) return false;
        address = strtoull(t.c_str() + 2, nullptr, 16);
        return true;
    });
}

bool ParseStackModules(const std::string& message, std::vector<LoggedModule>& modules) {
    static const char kPrefix[] = "Stack modules:";
    if (message.compare(0, sizeof kPrefix - 1, kPrefix) != 0) return false;
    modules.clear();
    size_t at = sizeof kPrefix - 1;
    while (at < message.size()) {
        const size_t end = message.find(';', at);
        if (end == std::string::npos) break;
        unsigned long long base = 0;
        unsigned long size = 0, stamp = 0;
        int nameAt = 0;
        const std::string entry = message.substr(at, end - at);
        if (sscanf(entry.c_str(), " 0x%llx 0x%lx %8lx %n", &base, &size, &stamp, &nameAt) != 3 || !nameAt ||
            size_t(nameAt) >= entry.size())
            return false;
        modules.push_back({base, uint32_t(size), uint32_t(stamp), entry.substr(size_t(nameAt))});
        at = end + 1;
    }
    return !modules.empty();
}

std::vector<uint64_t> JoinWordPairs(const std::vector<uint32_t>& words) {
    std::vector<uint64_t> addresses;
    for (size_t i = 0; i + 1 < words.size(); i += 2) addresses.push_back(words[i] | (uint64_t(words[i + 1]) << 32));
    return addresses;
}

}  // namespace kvdiag
