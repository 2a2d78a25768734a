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

TEST(Limits, NestingIsBounded) {
    SampleRecord record;
    for (const wchar_t* open : {L"(", L"-", L"+", L"!", L"1+(", L"2||1&&1==1+1*("}) {
        const std::size_t length = std::wcslen(open);
        const auto nested = [&](std::size_t n) {
            return repeat(open, n) + L"7" + (open[length - 1] == L'(' ? repeat(L")", n) : L"");
        };
        EXPECT_NE(Criteria(nested(256), record).check(), L"fails") << open;
        Criteria over(nested(257), record);
        EXPECT_EQ(over.check(), L"fails") << open;
        EXPECT_EQ(over.evaluator.compileError().text, "nested more than 256 levels deep");
        EXPECT_EQ(over.evaluator.compileError().position, 257 * length - 1);
    }
    const auto calls = [&](std::size_t n) {
        return L"length(" + repeat(L"join(1,", n) + L"\"x\"" + repeat(L")", n) + L")";
    };
    EXPECT_EQ(Criteria(calls(255), record).check(), L"256");
    EXPECT_EQ(Criteria(calls(256), record).check(), L"fails");
}

TEST(Limits, ChainsMayBeLong) {
    SampleRecord record;
    Criteria sum(L"1" + repeat(L"+1", 100000), record);
    EXPECT_EQ(sum.check(), L"100001");
    EXPECT_GT(dumpTree(sum.evaluator.tree()).size(), 500000U);
    Criteria joined(L"\"\"" + repeat(L"+(\"a\"+\"\")", 100000), record);
    EXPECT_EQ(joined.check(), L'"' + std::wstring(100000, L'a') + L'"');
    EXPECT_EQ(joined.check(), L'"' + std::wstring(100000, L'a') + L'"');
}

TEST(Limits, TextsHaveARoom) {
    SampleRecord record;
    Criteria title(L"[TITLE]!=\"\"", record), joined(L"length([TITLE]+[NAME])", record);
    for (int i = 0; i < 2; ++i) {
        record.title(std::wstring(131071, L'x'));
        EXPECT_EQ(title.check(), L"1");
        record.title(std::wstring(131072, L'x'));
        EXPECT_EQ(title.check(), L"fails");
        record.title(std::wstring(131069, L'x'));
        record.name(L"n");
        EXPECT_EQ(joined.check(), L"131070");
        record.name(L"nn");
        EXPECT_EQ(joined.check(), L"fails");
    }
}

}  // namespace
}  // namespace fscanner
