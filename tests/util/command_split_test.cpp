// The hand-written command split against the regular expression it stands
// for, on every short text over an alphabet of quotes, blanks, line breaks
// and letters, and on longer random texts.
#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>

#include "util/command_split.h"

namespace {

const char kAlphabet[] = {'"', ' ', '\t', '\n', '\r', 'a', 'b'};
constexpr size_t kLetters = sizeof kAlphabet;

void ExpectSameAsRegex(const std::string& text) {
    static const std::regex split("^(\".*\"|\\S*)\\s+(.+)$", std::regex::ECMAScript);
    std::smatch m;
    const bool expected = std::regex_search(text, m, split);
    std::string program = "<unset>", parameters = "<unset>";
    const bool got = kv::SplitCommandLine(text, program, parameters);
    ASSERT_EQ(expected, got) << '[' << text << ']';
    if (expected) {
        ASSERT_EQ(m.str(1), program) << '[' << text << ']';
        ASSERT_EQ(m.str(2), parameters) << '[' << text << ']';
    }
}

}  // namespace

TEST(CommandSplit, EveryShortTextSplitsLikeTheRegex) {
    for (size_t len = 0; len <= 6; ++len) {
        size_t total = 1;
        for (size_t i = 0; i < len; ++i) total *= kLetters;
        for (size_t code = 0; code < total; ++code) {
            std::string text;
            for (size_t c = code, i = 0; i < len; ++i, c /= kLetters) text += kAlphabet[c % kLetters];
            ExpectSameAsRegex(text);
            if (HasFatalFailure()) return;
        }
    }
}

TEST(CommandSplit, LongerRandomTextsSplitLikeTheRegex) {
    std::mt19937 random(20240305);
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 40, ' ');
        for (char& c : text) c = kAlphabet[random() % kLetters];
        ExpectSameAsRegex(text);
        if (HasFatalFailure()) return;
    }
}

TEST(CommandSplit, LongCommandLinesNeedNoDeepStack) {
    std::string program, parameters;
    const std::string line = "\"C:\\Prod\\Bin\\Tool.exe\" " + std::string(100000, 'x') + " \"end\"";
    ASSERT_TRUE(kv::SplitCommandLine(line, program, parameters));
    EXPECT_EQ("\"C:\\Prod\\Bin\\Tool.exe\"", program);
    EXPECT_EQ(100000u + 6u, parameters.size());
}
