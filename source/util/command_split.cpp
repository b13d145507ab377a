// SplitCommandLine: the backtracking of ^(".*"|\S*)\s+(.+)$ worked out in closed form.
#include "util/command_split.h"

namespace kv {

namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }
bool IsLineBreak(char c) { return c == '\n' || c == '\r'; }

// \s+(.+)$ from position k: the start of group 2, or npos. The greedy blank
// run gives back characters only so that ".+" keeps at least one and holds no
// line break.
size_t MatchTail(const std::string& s, size_t k, size_t lastBreak) {
    const size_t n = s.size();
    if (k >= n || !IsSpace(s[k])) return std::string::npos;
    size_t run = k;
    while (run < n && IsSpace(s[run])) ++run;
    const size_t start = run < n ? run : n - 1;
    if (start < k + 1) return std::string::npos;
    if (lastBreak != std::string::npos && start <= lastBreak) return std::string::npos;
    return start;
}

}  // namespace

bool SplitCommandLine(const std::string& s, std::string& program, std::string& parameters) {
    const size_t n = s.size();
    size_t lastBreak = std::string::npos;
    for (size_t i = 0; i < n; ++i)
        if (IsLineBreak(s[i])) lastBreak = i;

    // ".*" : the closing quote as far right as the line allows, then leftwards.
    if (n && s[0] == '"') {
        size_t lineEnd = 1;
        while (lineEnd < n && !IsLineBreak(s[lineEnd])) ++lineEnd;
        for (size_t j = lineEnd; j-- > 1;) {
            if (s[j] != '"') continue;
            const size_t tail = MatchTail(s, j + 1, lastBreak);
            if (tail != std::string::npos) {
                program = s.substr(0, j + 1);
                parameters = s.substr(tail);
                return true;
            }
        }
    }
    // \S* : only the whole first word can be followed by a blank.
    size_t word = 0;
    while (word < n && !IsSpace(s[word])) ++word;
    const size_t tail = MatchTail(s, word, lastBreak);
    if (tail == std::string::npos) return false;
    program = s.substr(0, word);
    parameters = s.substr(tail);
    return true;
}

}  // namespace kv
