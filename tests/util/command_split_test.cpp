// The hand-written command split against the regular expression it stands
// for: every text up to 6 characters over an alphabet of quotes, blanks, line
// breaks and letters, then 20,000 random longer ones.
#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>

#include "util/command_split.h"

TEST(CommandSplit, SplitsLikeTheRegexOnEveryShortAndManyRandomTexts) {
    static const char alphabet[] = "\" \t\n\rab";
    const size_t letters = sizeof alphabet - 1;
    const std::regex pattern("^(\".*\"|\\S*)\\s+(.+)$", std::regex::ECMAScript);
    std::vector<std::string> texts;
    for (size_t len = 0, total = 1; len <= 6; ++len, total *= letters)
        for (size_t code = 0; code < total; ++code) {
            std::string text;
            for (size_t c = code, i = 0; i < len; ++i, c /= letters) text += alphabet[c % letters];
            texts.push_back(text);
        }
    std::mt19937 random(20240305);
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 40, ' ');
        for (char& c : text) c = alphabet[random() % letters];
        texts.push_back(text);
    }
    for (const std::string& text : texts) {
        std::smatch m;
        const bool expected = std::regex_search(text, m, pattern);
        std::string program = "<unset>", parameters = "<unset>";
        const bool split = kv::SplitCommandLine(text, program, parameters);
        const std::string got = split ? program + '|' + parameters : "<none>";
        ASSERT_EQ(expected ? m.str(1) + '|' + m.str(2) : "<none>", got) << '[' << text << ']';
    }
}

TEST(CommandSplit, LongCommandLinesNeedNoDeepStack) {
    std::string program, parameters;
    const std::string line = "\"C:\\Prod\\Bin\\Tool.exe\" " + std::string(100000, 'x') + " \"end\"";
    ASSERT_TRUE(kv::SplitCommandLine(line, program, parameters));
    EXPECT_EQ("\"C:\\Prod\\Bin\\Tool.exe\"", program);
    EXPECT_EQ(100000u + 6u, parameters.size());
}
