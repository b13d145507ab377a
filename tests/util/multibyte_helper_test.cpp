// MultiByteHelper: conversions with the ANSI code page and tokenising.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <string>
#include <vector>

#include "KvUtil.h"

namespace {

std::vector<std::wstring> Tokens(const wchar_t* text, const wchar_t* delimiters) {
    const std::list<KvWString>* list = MultiByteHelper::Tokenize(text, delimiters);
    std::vector<std::wstring> out;
    if (!list) {
        ADD_FAILURE() << "Tokenize returned null";
        return out;
    }
    for (const auto& t : *list) out.emplace_back(t.c_str(), t.size());
    MultiByteHelper::FreeTokenList(list);
    return out;
}

using W = std::vector<std::wstring>;

}  // namespace

TEST(MultiByteHelper, ConversionsRoundTripAndStopAtTheFirstNull) {
    EXPECT_EQ("Alarm 42", MultiByteHelper::WideStringToCharString(L"Alarm 42"));
    EXPECT_TRUE(MultiByteHelper::WideStringToCharString(L"").empty());
    EXPECT_TRUE(MultiByteHelper::CharStringToWideString("").empty());
    if (GetACP() == 1252) {  // the Western code page of both Wine's default and the plants' machines
        EXPECT_TRUE(MultiByteHelper::CharStringToWideString("Pump \xe9t\xe9") == KvWString(L"Pump \u00e9t\u00e9"));
        EXPECT_EQ("Pump \xe9t\xe9", MultiByteHelper::WideStringToCharString(L"Pump \u00e9t\u00e9"));
    }
    // Text after an embedded null character is lost.
    const KvWString withNull(L"ab\0cd", 5);
    EXPECT_EQ("ab", MultiByteHelper::WideStringToCharString(withNull));
    const KvString narrowNull("xy\0z", 4);
    EXPECT_TRUE(MultiByteHelper::CharStringToWideString(narrowNull) == KvWString(L"xy"));
    // A long text survives both ways.
    KvWString longText(100000, L'q');
    EXPECT_EQ(KvString(100000, 'q'), MultiByteHelper::WideStringToCharString(longText));
}

TEST(MultiByteHelper, UnrepresentableCharactersBecomeTheDefaultCharacter) {
    const KvString narrow = MultiByteHelper::WideStringToCharString(L"a\u4e00b");
    ASSERT_EQ(3u, narrow.size());
    EXPECT_EQ('a', narrow[0]);
    EXPECT_NE('\0', narrow[1]);
    EXPECT_EQ('b', narrow[2]);
}

TEST(MultiByteHelper, TokenizeSkipsRunsAndEnds) {
    EXPECT_EQ(W({L"a", L"b"}), Tokens(L";;a;;b;", L";"));
    EXPECT_EQ(W({L"x", L"y", L"z"}), Tokens(L" x,\ty ,z", L" ,\t"));
    EXPECT_EQ(W({L"abc"}), Tokens(L"abc", L""));
    EXPECT_EQ(W({L"abc"}), Tokens(L"abc", L";"));
    EXPECT_EQ(W(), Tokens(L"", L";"));
    EXPECT_EQ(W(), Tokens(L";;;", L";"));
    EXPECT_EQ(W(), Tokens(L"", L""));
}

TEST(MultiByteHelper, AllocatorRefusesImpossibleSizes) {
    Korvan::StringAllocator<wchar_t> alloc;
    EXPECT_THROW(alloc.allocate(size_t(-1) / 2), std::bad_alloc);
    wchar_t* p = alloc.allocate(8);
    ASSERT_NE(nullptr, p);
    alloc.deallocate(p, 8);
    MultiByteHelper::FreeTokenList(nullptr);  // ignored
}
