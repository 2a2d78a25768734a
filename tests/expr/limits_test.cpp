#include <gtest/gtest.h>

#include "expr/sample_record.h"
#include "fscanner/common/utf8.h"

/// Criteria come from outside: neither their depth nor their length may do harm.
namespace fscanner {
namespace {

constexpr std::size_t kRoom = 131071;  // of a text

std::wstring repeat(std::wstring_view text, std::size_t n) {
    std::wstring all;
    for (std::size_t i = 0; i < n; ++i) all += text;
    return all;
}

/// The value as in a search: compiled first, then checked again and again.
std::wstring valueOf(const std::wstring& text, SampleRecord& record) {
    SCOPED_TRACE(toMultibyte(text.substr(0, 60)) + " of " + std::to_string(text.size()));
    Criteria criteria(text, record);
    const bool compiles = criteria.evaluator.compile();
    EXPECT_EQ(compiles, criteria.evaluator.compileError().text.empty());
    EXPECT_LE(criteria.evaluator.compileError().position, text.size());
    EXPECT_TRUE(Tree::preVisit(criteria.evaluator.tree().getRoot()));
    const std::wstring value = criteria.check();
    EXPECT_EQ(criteria.check(), value);

    Criteria atOnce(text, record);
    atOnce.check();
    EXPECT_EQ(atOnce.evaluator.compileError().text.empty(), compiles);
    return value;
}

TEST(Limits, NestingIsBounded) {
    SampleRecord record;
    static const struct {
        const wchar_t* open;
        const wchar_t* close;
        std::size_t deepest;   // the deepest nesting that has a value
        std::size_t position;  // of the part that is too deep
    } cases[] = {
        {L"(", L")", 256, 256},
        {L"-", L"", 256, 256},
        {L"(!+", L")", 85, 256},
        {L"1+(", L")", 256, 770},
        {L"2||1&&1==1+1*(", L")", 256, 3597},
    };
    for (const auto& c : cases) {
        const auto nested = [&](std::size_t depth) {
            return repeat(c.open, depth) + L"7" + repeat(c.close, depth);
        };
        EXPECT_NE(valueOf(nested(c.deepest), record), L"fails") << c.open;
        for (const std::size_t depth : {c.deepest + 1, std::size_t{100000}}) {
            EXPECT_EQ(valueOf(nested(depth), record), L"fails") << c.open;
            Criteria over(nested(depth), record);
            EXPECT_EQ(over.check(), L"fails") << c.open;
            EXPECT_EQ(over.evaluator.compileError().text, "nested more than 256 levels deep");
            EXPECT_EQ(over.evaluator.compileError().position, c.position) << c.open;
        }
    }
    const auto calls = [&](std::size_t n) {
        return L"length(" + repeat(L"join(1,", n) + L"\"x\"" + repeat(L")", n) + L")";
    };
    EXPECT_EQ(Criteria(calls(255), record).check(), L"256");
    EXPECT_EQ(Criteria(calls(256), record).check(), L"fails");
}

TEST(Limits, ChainsAndTextsMayBeLong) {
    const std::wstring longest = L'"' + std::wstring(kRoom, L'a') + L'"';
    const struct {
        std::wstring text;
        std::wstring value;
    } cases[] = {
        {L"\"\"" + repeat(L"+(\"a\"+\"\")", 100000), L'"' + std::wstring(100000, L'a') + L'"'},
        {L"0" + repeat(L"||(0)&&1", 100000), L"0"},
        {L"[NAME]!=\"\"" + repeat(L"&&[NAME]!=\"*b\"", 100000), L"1"},
        {L"1" + std::wstring(1 << 20, L' ') + L"+1", L"2"},
        {L"\"" + std::wstring(1 << 20, L'a'), L"fails"},
        {longest + L"==" + longest, L"1"},
        {L"length(" + longest + L"+" + longest + L")", L"fails"},
        // Patterns of the worst kind.
        {L"[TITLE]==\"" + repeat(L"*t", kRoom / 2) + L"\"", L"0"},
        {L"[TITLE]==\"" + repeat(L"*?", 100) + L"\"", L"1"},
        {L"[TITLE]==\"" + repeat(L"*t", 100) + L"b\"", L"0"},
        {L"[TITLE]==\"" + repeat(L"*ttb", 50) + L"\"", L"0"},
        {L"[TITLE]==\"" + std::wstring(100000, L'*') + L"t\"", L"1"},
        {L"[TITLE]==\"" + std::wstring(100000, L'?') + L"\"", L"0"},
    };
    SampleRecord record;
    for (const auto& [text, value] : cases)
        EXPECT_EQ(valueOf(text, record), value) << text.substr(0, 60);
    Criteria sum(L"1" + repeat(L"+1", 1000000), record);
    EXPECT_EQ(sum.check(), L"1000001");
    EXPECT_EQ(sum.check(), L"1000001");
    EXPECT_GT(dumpTree(sum.evaluator.tree()).size(), 5000000U);
}

TEST(Limits, TextsHaveARoom) {
    SampleRecord record;
    Criteria title(L"[TITLE]!=\"\"", record), joined(L"length([TITLE]+[NAME])", record);
    for (int i = 0; i < 2; ++i) {
        record.title(std::wstring(kRoom, L'x'));
        EXPECT_EQ(title.check(), L"1");
        record.title(std::wstring(kRoom + 1, L'x'));
        EXPECT_EQ(title.check(), L"fails");
        record.title(std::wstring(kRoom - 2, L'x'));
        record.name(L"n");
        EXPECT_EQ(joined.check(), L"131070");
        record.name(L"nn");
        EXPECT_EQ(joined.check(), L"fails");
    }
}

TEST(Limits, NumbersWrapAround) {
    SampleRecord record;
    record.big(1ULL << 63);
    for (const wchar_t* text : {L"[BIG]/-1", L"-[BIG]", L"[BIG]*-1", L"([BIG]-1)+1", L"[BIG]/1"})
        EXPECT_EQ(valueOf(text, record), L"-9223372036854775808") << text;
    EXPECT_EQ(valueOf(L"[BIG]-1", record), L"9223372036854775807");
}

}  // namespace
}  // namespace fscanner
