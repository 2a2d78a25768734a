#include "fscanner/common/common.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "fscanner/common/strings.h"

using namespace fscanner;

namespace {

TEST(Strings, TrimBlanksOnly) {
    const wchar_t* const cases[][3] = {
        {L"  a b  ", L"a b  ", L"  a b"}, {L"   ", L"", L""}, {L"\t a ", L"\t a ", L"\t a"}};
    for (const auto& [text, trimmedLeft, trimmedRight] : cases) {
        std::wstring left = text, right = text;
        EXPECT_EQ(ltrim(left.data()), left.data());
        EXPECT_STREQ(left.c_str(), trimmedLeft);
        EXPECT_EQ(rtrim(right.data()), right.data());
        EXPECT_STREQ(right.c_str(), trimmedRight);
    }
}

TEST(Strings, ReplaceAndFind) {
    wchar_t text[] = L"a.b.c";
    replaceChar(text, L'.', L'/');
    EXPECT_STREQ(text, L"a/b/c");
    replaceChar(nullptr, L'a', L'b');
    EXPECT_EQ(wcsbtw(text, text + 1, L'/'), text + 1);  // the last position counts
    EXPECT_EQ(wcsbtw(text + 2, text + 2, L'/'), nullptr);
    EXPECT_EQ(wcsbtw(text + 2, text + 1, L'/'), nullptr);
    EXPECT_EQ(my_wcswcs(text, L"/c"), text + 3);
    EXPECT_EQ(my_wcswcs(text, L"/cx"), nullptr);
    EXPECT_EQ(my_wcswcs(text, L""), text);
}

TEST(Strings, CopyGrowsOnDemand) {
    wchar_t* text = nullptr;
    EXPECT_EQ(__wcscpy(&text, nullptr), nullptr);
    EXPECT_STREQ(__wcscpy(&text, L"abc"), L"abc");
    wchar_t* block = text;
    EXPECT_EQ(__wcscpy(&text, L"xy"), block);
    EXPECT_STREQ(text, L"xy");
    EXPECT_EQ(__wcscpy(&text, text + 1), block);  // its own tail
    EXPECT_STREQ(text, L"y");
    EXPECT_EQ(__wcscpy(&text, nullptr), block);
    EXPECT_STREQ(__wcscpy(&text, L"much longer than before"), L"much longer than before");
    std::free(text);
}

TEST(Strings, PrependKeepsAReserveAndTakesItsOwnTail) {
    wchar_t small[12] = L"cde";
    EXPECT_FALSE(wcs_stringCat(L"ab", small, 8));
    EXPECT_STREQ(small, L"cde");
    EXPECT_TRUE(wcs_stringCat(L"ab", small, 9));
    EXPECT_STREQ(small, L"abcde");
    for (std::size_t from = 0; from <= 4; ++from) {
        wchar_t text[20] = L"abcd";
        const std::wstring expected = std::wstring(text + from) + text;
        EXPECT_TRUE(wcs_stringCat(text + from, text, 20));
        EXPECT_EQ(text, expected) << from;
    }
}

TEST(Strings, InsertReplacesTheFirstCharacter) {
    const wchar_t* const cases[][4] = {
        {L"x.y.z", L".", L"/", L"x/y/z"},
        {L"a%sb", L"%s", L"X", L"aXsb"},   // the rest of the occurrence stays
        {L"aaa", L"aa", L"<>", L"<><>a"},  // scanning resumes within it
        {L"'", L"'", L"'\\''", L"'\\''"},
        {L"abc", L"", L"X", L"abc"},
        {L"abc", L"b", L"", L"ac"},
        {nullptr, L"a", L"b", nullptr},
        {L"a", nullptr, L"b", nullptr},
        {L"a", L"b", nullptr, nullptr},
    };
    for (const auto& [text, find, insert, expected] : cases) {
        const HeapText result(insertAndReplaceString(text, find, insert));
        EXPECT_STREQ(result.get(), expected) << (text ? text : L"(null)");
    }
}

std::vector<std::wstring> tokens(const wchar_t* text) {
    std::vector<std::wstring> result;
    wchar_t token[32];
    for (const wchar_t* from = text;; from = nullptr) {
        EXPECT_TRUE(tokenize(from, token, 32));
        if (token[0] == 0) return result;
        result.emplace_back(token);
    }
}

TEST(Tokenize, CutsAtOperators) {
    using Tokens = std::vector<std::wstring>;
    EXPECT_EQ(tokens(L"(ab & !c)|d"), (Tokens{L"(", L"ab", L"&", L"!", L"c", L")", L"|", L"d"}));
    EXPECT_EQ(tokens(L"two words"), (Tokens{L"twowords"}));
    EXPECT_EQ(tokens(L"\"a & (b)\"c|x"), (Tokens{L"a & (b)c", L"|", L"x"}));
    EXPECT_EQ(tokens(L"\"open (quote"), (Tokens{L"open (quote"}));
    EXPECT_EQ(tokens(L"  "), Tokens{});
    EXPECT_EQ(tokens(L"\t"), (Tokens{L"\t"}));
}

TEST(Tokenize, StaysWhereATokenDoesNotFit) {
    wchar_t token[16];
    ASSERT_TRUE(tokenize(L"ab&abcdef", token, 16));
    ASSERT_TRUE(tokenize(nullptr, token, 16));
    EXPECT_FALSE(tokenize(nullptr, token, 6));  // no room for the terminator
    EXPECT_FALSE(tokenize(nullptr, token, 0));
    EXPECT_TRUE(tokenize(nullptr, token, 7));
    EXPECT_STREQ(token, L"abcdef");
    EXPECT_TRUE(tokenize(nullptr, token, 1));
    EXPECT_STREQ(token, L"");
    EXPECT_FALSE(tokenize(L"(a", token, 4));  // an operator wants more than four
    EXPECT_TRUE(tokenize(nullptr, token, 5));
    EXPECT_STREQ(token, L"(");
}

TEST(StringList, HasNothingBeyondItsBounds) {
    StringList<wchar_t> list;
    EXPECT_TRUE(list.insert(L"one"));
    EXPECT_FALSE(list.insert(nullptr));
    EXPECT_EQ(list.size(), 1);
    EXPECT_TRUE(list.at(0));
    EXPECT_FALSE(list.at(1));
    EXPECT_FALSE(list.at(-1));
    EXPECT_EQ(list.find(L"ONE"), -1);
}

}  // namespace
