// MultiByteHelper: conversions with the ANSI code page and tokenising.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KvUtil.h"

TEST(MultiByteHelper, ConversionsStopAtTheFirstNull) {
    const struct { const char* label; KvWString wide; KvString narrow; } bothWays[] = {
        {"plain", L"Alarm 42", "Alarm 42"}, {"empty", L"", ""}, {"long", KvWString(100000, L'q'), KvString(100000, 'q')}};
    for (const auto& c : bothWays) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(c.narrow, MultiByteHelper::WideStringToCharString(c.wide));
        EXPECT_TRUE(c.wide == MultiByteHelper::CharStringToWideString(c.narrow));
    }
    // Text after an embedded null character is lost.
    EXPECT_EQ("ab", MultiByteHelper::WideStringToCharString(KvWString(L"ab\0cd", 5)));
    EXPECT_TRUE(MultiByteHelper::CharStringToWideString(KvString("xy\0z", 4)) == KvWString(L"xy"));
    // An unrepresentable character becomes the default character, not an end.
    const KvString narrow = MultiByteHelper::WideStringToCharString(L"a\u4e00b");
    ASSERT_EQ(3u, narrow.size());
    EXPECT_TRUE(narrow[0] == 'a' && narrow[1] != '\0' && narrow[2] == 'b') << narrow.c_str();
}

TEST(MultiByteHelper, TokenizeSkipsRunsAndEnds) {
    using W = std::vector<std::wstring>;
    const struct { const wchar_t* text; const wchar_t* delimiters; W expected; } cases[] = {
        {L";;a;;b;", L";", {L"a", L"b"}}, {L" x,\ty ,z", L" ,\t", {L"x", L"y", L"z"}}, {L"abc", L"", {L"abc"}},
        {L"abc", L";", {L"abc"}},         {L"", L";", {}},                             {L";;;", L";", {}},
        {L"", L"", {}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(c.text)));
        const std::list<KvWString>* list = MultiByteHelper::Tokenize(c.text, c.delimiters);
        ASSERT_NE(nullptr, list);
        W tokens;
        for (const auto& t : *list) tokens.emplace_back(t.c_str(), t.size());
        MultiByteHelper::FreeTokenList(list);
        EXPECT_EQ(c.expected, tokens);
    }
}

// A count whose byte size wraps around to a small number must be refused, not
// served with a few bytes.
TEST(MultiByteHelper, AllocatorRefusesImpossibleSizes) {
    Korvan::StringAllocator<wchar_t> alloc;
    EXPECT_THROW(alloc.allocate(size_t(-1) / sizeof(wchar_t) + 2), std::bad_alloc);
}
