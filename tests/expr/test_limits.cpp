#include <gtest/gtest.h>

#include "expr/sample_record.h"

/// Criteria come from outside: neither their depth nor their length may hurt.
namespace fscanner {
namespace {

std::wstring repeat(std::wstring_view text, std::size_t n) {
    std::wstring all;
    for (std::size_t i = 0; i < n; ++i) all += text;
    return all;
}

TEST(Limits, EveryKindOfNestingIsBounded) {
    static const struct {
        const wchar_t* open;
        const wchar_t* core;
        const wchar_t* close;
        const wchar_t* value;
    } kinds[] = {
        {L"(", L"7", L")", L"7"},     {L"-", L"7", L"", L"7"},
        {L"+", L"7", L"", L"7"},      {L"!", L"7", L"", L"1"},
        {L"1+(", L"7", L")", L"263"}, {L"2||1&&1==1+1*(", L"7", L")", L"1"},
    };
    SampleRecord record;
    for (const auto& kind : kinds) {
        SCOPED_TRACE(std::string(kind.open, kind.open + std::wcslen(kind.open)));
        Criteria deepest(repeat(kind.open, 256) + kind.core + repeat(kind.close, 256), record);
        EXPECT_EQ(deepest.check(), kind.value);
        EXPECT_EQ(deepest.check(), kind.value);
        for (const std::size_t depth : {257U, 100000U}) {
            Criteria over(repeat(kind.open, depth) + kind.core + repeat(kind.close, depth), record);
            EXPECT_EQ(over.check(), L"fails");
            EXPECT_EQ(over.evaluator.compileError().text, "nested more than 256 levels deep");
            EXPECT_EQ(over.evaluator.compileError().position, 257 * std::wcslen(kind.open) - 1);
        }
    }
}

TEST(Limits, ArgumentsAreNestedToo) {
    SampleRecord record;
    const auto nested = [&](std::size_t n) {
        Criteria criteria(L"length(" + repeat(L"join(1,", n) + L"\"x\"" + repeat(L")", n) + L")",
                          record);
        return criteria.check();
    };
    EXPECT_EQ(nested(255), L"256");
    EXPECT_EQ(nested(256), L"fails");
    EXPECT_EQ(nested(50000), L"fails");
}

TEST(Limits, ChainsMayBeLong) {
    static const struct {
        const wchar_t* first;
        const wchar_t* link;
        const wchar_t* value;
    } chains[] = {
        {L"1", L"+1", L"100001"}, {L"0", L"|(1+1)", L"2"}, {L"1", L"||0", L"1"},
        {L"1", L"&&1", L"1"},     {L"1", L"==1", L"1"},    {L"\"\"", L"+(\"a\"+\"\")", nullptr},
    };
    const std::wstring letters = L'"' + std::wstring(100000, L'a') + L'"';
    SampleRecord record;
    for (const auto& chain : chains) {
        SCOPED_TRACE(std::string(chain.link, chain.link + std::wcslen(chain.link)));
        Criteria criteria(chain.first + repeat(chain.link, 100000), record);
        const std::wstring value = chain.value ? chain.value : letters;
        EXPECT_EQ(criteria.check(), value);
        EXPECT_EQ(criteria.check(), value);
        EXPECT_GT(dumpTree(criteria.evaluator.tree()).size(), 500000U);
    }
}

TEST(Limits, TextsHaveARoom) {
    SampleRecord record;
    record.title(std::wstring(131071, L'x'));
    Criteria longest(L"[TITLE]!=\"\"", record);
    EXPECT_EQ(longest.check(), L"1");
    EXPECT_EQ(longest.check(), L"1");
    record.title(std::wstring(131072, L'x'));
    EXPECT_EQ(longest.check(), L"fails");
    EXPECT_STREQ(longest.evaluator.recordError(), "text too long");
    Criteria first(L"[TITLE]!=\"\"", record);
    EXPECT_EQ(first.check(), L"fails");
    EXPECT_TRUE(first.evaluator.failedOnRecord());

    record.title(std::wstring(131069, L'x'));
    Criteria joined(L"length([TITLE]+[NAME])", record);
    for (int i = 0; i < 2; ++i) {
        record.name(L"n");
        EXPECT_EQ(joined.check(), L"131070");
        record.name(L"nn");
        EXPECT_EQ(joined.check(), L"fails");
        EXPECT_STREQ(joined.evaluator.recordError(), "joined text too long");
    }
}

}  // namespace
}  // namespace fscanner
