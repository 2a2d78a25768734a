#include "fscanner/common/common.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "fscanner/common/strings.h"

using namespace fscanner;

namespace {

TEST(Strings, TrimReplaceAndFind) {
    std::wstring left = L"  a\t b  ", right = left;
    EXPECT_STREQ(ltrim(left.data()), L"a\t b  ");
    EXPECT_STREQ(rtrim(right.data()), L"  a\t b");
    wchar_t text[] = L"a.b.c";
    replaceChar(text, L'.', L'/');
    EXPECT_STREQ(text, L"a/b/c");
    replaceChar(nullptr, L'a', L'b');
    EXPECT_EQ(wcsbtw(text, text + 1, L'/'), text + 1);  // the last position counts
    EXPECT_EQ(wcsbtw(text + 2, text + 1, L'/'), nullptr);
    EXPECT_EQ(my_wcswcs(text, L"/c"), text + 3);
    EXPECT_EQ(my_wcswcs(text, L"/cx"), nullptr);
}

TEST(Strings, CopyGrowsOnDemand) {
    wchar_t* text = nullptr;
    EXPECT_EQ(__wcscpy(&text, nullptr), nullptr);
    EXPECT_STREQ(__wcscpy(&text, L"abc"), L"abc");
    EXPECT_STREQ(__wcscpy(&text, text + 1), L"bc") << "its own tail";
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
        {nullptr, L"a", L"b", nullptr},
    };
    for (const auto& [text, find, insert, expected] : cases) {
        const HeapText result(insertAndReplaceString(text, find, insert));
        EXPECT_STREQ(result.get(), expected) << (text ? text : L"(null)");
    }
}

TEST(Tokenize, CutsAtOperatorsAndStaysWhereATokenDoesNotFit) {
    wchar_t token[32];
    std::wstring found;
    for (tokenize(L"(ab & !c)|two words|\"a (b)\"c", token, 32); *token;
         tokenize(nullptr, token, 32))
        found += token + std::wstring(L";");
    EXPECT_EQ(found, L"(;ab;&;!;c;);|;twowords;|;a (b)c;");
    ASSERT_TRUE(tokenize(L"&abcdef", token, 16));
    EXPECT_FALSE(tokenize(nullptr, token, 6));  // no room for the terminator
    EXPECT_TRUE(tokenize(nullptr, token, 7));
    EXPECT_STREQ(token, L"abcdef");
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
