// Criteria from outside that are deep, long, cut or divide by what they should not:
// each has a value, or an error that lies within its text.

#include <gmock/gmock.h>

#include <climits>

#include "expr/sample_record.h"
#include "fscanner/common/utf8.h"

namespace fscanner {
namespace {

constexpr std::size_t kDepths[] = {255, 256, 257, 1000, 100000};
constexpr std::size_t kMebi = 1 << 20;
constexpr std::size_t kRoom = 131071;  // of a text

std::wstring repeat(std::wstring_view text, std::size_t n) {
    std::wstring all;
    for (std::size_t i = 0; i < n; ++i) all += text;
    return all;
}

std::string shortened(const std::wstring& text) {
    return toMultibyte(text.substr(0, 60)) + " of " + std::to_string(text.size());
}

// The value as searches come to it: compiled first, then checked again and again.
std::wstring valueOf(const std::wstring& text, SampleRecord& record, bool caseSensitive = true) {
    SCOPED_TRACE(shortened(text));
    Criteria criteria(text, record);
    const bool compiles = criteria.evaluator.compile();
    EXPECT_EQ(compiles, criteria.evaluator.compileError().text.empty());
    EXPECT_LE(criteria.evaluator.compileError().position, text.size());
    EXPECT_TRUE(Tree::preVisit(criteria.evaluator.tree().getRoot()));
    const std::wstring value = criteria.check(caseSensitive);
    EXPECT_EQ(criteria.check(caseSensitive), value);

    Criteria atOnce(text, record);
    atOnce.check(caseSensitive);
    EXPECT_EQ(atOnce.evaluator.compileError().text.empty(), compiles);
    return value;
}

TEST(HostileCriteria, BracketsAndSignsOfAnyDepth) {
    struct Kind {
        const wchar_t* open;
        const wchar_t* core;
        const wchar_t* close;
        std::size_t deepest;  // what still has a value
    };
    const Kind kinds[] = {
        {L"(", L"1", L")", 256},
        {L"-", L"1", L"", 256},
        {L"+", L"1", L"", 256},
        {L"!", L"1", L"", 256},
        {L"-(", L"1", L")", 128},
        {L"!(", L"1", L")", 128},
        {L"(-", L"1", L")", 128},
        {L"(!+", L"1", L")", 85},
        {L"1*(", L"1", L")", 256},
        {L"1&(0+", L"1", L")", 256},
        {L"1==(", L"1", L")", 256},
        {L"0||(", L"1", L")", 256},
        {L"1&&(", L"1", L")", 256},
        {L"[BYTE]-(", L"1", L")", 256},
        {L"length(join(1,", L"\"\"", L"))", 0},
        {L"length(\"\"+", L"\"\"", L")", 0},
        {L"(", L"1", L"", 0},
        {L"(", L"", L")", 0},
        {L"", L"1", L"(", 0},
        {L"[", L"NAME", L"]", 0},
        {L"\"", L"", L"", 0},
        {L",", L"", L"", 0},
        {L"&&", L"1", L"", 0},
        {L"||", L"1", L"", 0},
        {L"==", L"1", L"", 0},
        {L"*", L"1", L"", 0},
        {L"/", L"1", L"", 0},
        {L"join(", L"1", L"", 0},
        {L"join(1,", L"", L"", 0},
        {L"[NAME", L"", L"", 0},
        {L"1 ", L"1", L"", 0},
        {L".", L"5", L"", 0},
        {L"1.", L"5", L"", 0},
        {L"\x00e9", L"1", L"", 0},
        {L"\xdcff", L"1", L"", 0},
        {L"\t", L"1", L"", 0},
        {L"&", L"1", L"", 0},
        {L"$", L"1", L"", 0},
        {L"=", L"1", L"", 0},
        {L"<>", L"1", L"", 0},
    };
    SampleRecord record;
    for (const Kind& kind : kinds) {
        for (const std::size_t depth : kDepths) {
            const std::wstring text =
                repeat(kind.open, depth) + kind.core + repeat(kind.close, depth);
            EXPECT_EQ(valueOf(text, record) != L"fails", depth <= kind.deepest) << shortened(text);
        }
    }
}

TEST(HostileCriteria, LiteralsAndNamesOfAMebibyte) {
    const std::wstring letters(kMebi, L'a'), digits(kMebi, L'9');
    const std::wstring longest(kRoom, L'a'), stars(kRoom - 1, L'*');
    struct Case {
        std::wstring text;
        const wchar_t* value;
    };
    const Case cases[] = {
        {L"\"" + letters + L"\"==[NAME]", L"fails"},
        {L"\"" + longest + L"a\"==[NAME]", L"fails"},
        {L"\"" + longest + L"\"==[NAME]", L"0"},
        {L"[NAME]==\"" + stars + L"\"", L"1"},
        {L"[NAME]==\"" + stars + L"b\"", L"0"},
        {L"[NAME]==\"" + repeat(L"*?", kRoom / 2) + L"\"", L"0"},
        {L"[TITLE]==\"" + repeat(L"*t", kRoom / 2) + L"\"", L"0"},
        {L"\"" + longest + L"\"==\"" + longest + L"\"", L"1"},
        {L"\"" + longest + L"\"<\"" + longest + L"\"", L"0"},
        {L"length(\"" + longest + L"\")", L"131071"},
        {L"length(\"" + longest + L"\"+\"" + longest + L"\")", L"fails"},
        {L"\"" + letters, L"fails"},
        {digits, L"fails"},
        {digits + L"." + digits, L"fails"},
        {std::wstring(250, L'9'), L"2147483647"},
        {letters, L"fails"},
        {L"[" + letters + L"]", L"fails"},
        {letters + L"(1)", L"fails"},
        {L"join(1,\"" + longest + L"\")==\"b\"", L"0"},
        {L"1" + std::wstring(kMebi, L' ') + L"+1", L"2"},
        {L"1+1" + std::wstring(kMebi, L' '), L"fails"},
        {L"1" + repeat(L"+1-1", kMebi / 4), L"1"},
        {L"1" + repeat(L"&&1", kMebi / 3), L"1"},
        {L"0" + repeat(L"||(0)", kMebi / 5), L"0"},
        {L"[NAME]!=\"\"" + repeat(L"&&[NAME]!=\"*b\"", kMebi / 13), L"1"},
    };
    SampleRecord record;
    for (const Case& c : cases) EXPECT_EQ(valueOf(c.text, record), c.value) << shortened(c.text);
}

TEST(HostileCriteria, Division) {
    struct Case {
        const wchar_t* text;
        const wchar_t* value;
    };
    // [BIG] is the least number.
    const Case cases[] = {
        {L"1/0", L"fails"},
        {L"0/0", L"fails"},
        {L"[BIG]/0", L"fails"},
        {L"1/(1-1)", L"fails"},
        {L"!(1/0)", L"fails"},
        {L"-(1/0)", L"fails"},
        {L"(1/0)==(1/0)", L"fails"},
        {L"1/0/0", L"fails"},
        {L"0*(1/0)", L"fails"},
        {L"0&(1/0)", L"fails"},
        {L"1&&1/0", L"fails"},
        {L"0||1/0", L"fails"},
        {L"2||1/0", L"fails"},
        {L"length(join(1/0,\"\"))", L"fails"},
        {L"1/length(\"\")", L"fails"},
        {L"0&&1/0", L"0"},
        {L"1||1/0", L"1"},
        {L"0&&(1/0||1)", L"0"},
        {L"0/5", L"0"},
        {L"10/3", L"3"},
        {L"-10/3", L"-3"},
        {L"10/-3", L"-3"},
        {L"-10/-3", L"3"},
        {L"1/2147483647", L"0"},
        {L"[BIG]/1", L"-9223372036854775808"},
        {L"[BIG]/-1", L"-9223372036854775808"},
        {L"[BIG]/(0-1)", L"-9223372036854775808"},
        {L"-[BIG]", L"-9223372036854775808"},
        {L"[BIG]*-1", L"-9223372036854775808"},
        {L"[BIG]/[BIG]", L"1"},
        {L"[BIG]-1", L"9223372036854775807"},
        {L"([BIG]-1)/-1", L"-9223372036854775807"},
        {L"([BIG]-1)+1", L"-9223372036854775808"},
        {L"[BIG]+[BIG]", L"0"},
        {L"[BIG]*[BIG]", L"0"},
        {L"[BIG]/2*2", L"-9223372036854775808"},
        {L"1/[BIG]", L"0"},
        {L"--[BIG]/-1", L"-9223372036854775808"},
        {L"[SHORT]/[BYTE]", L"200"},
        {L"1/([BYTE]/[SHORT])", L"fails"},
    };
    SampleRecord record;
    record.big(1ULL << 63);
    for (const Case& c : cases) EXPECT_EQ(valueOf(c.text, record), c.value) << shortened(c.text);
}

TEST(HostileCriteria, PatternsOfTheWorstKind) {
    struct Case {
        std::wstring pattern;
        std::wstring name;
        bool matches;
    };
    const std::wstring as(255, L'a'), abs = repeat(L"ab", 127), e(255, L'\x00e9');
    const Case cases[] = {
        {repeat(L"*a", 127), as, true},
        {repeat(L"*a", 127) + L"b", as, false},
        {repeat(L"a*", 127), as, true},
        {L"b" + repeat(L"a*", 127), as, false},
        {repeat(L"*?", 127), as, true},
        {repeat(L"*?", 256), as, false},
        {repeat(L"*?a", 85), as, true},
        {repeat(L"*ab", 85) + L"c", abs, false},
        {repeat(L"*aab", 64), abs, false},
        {repeat(L"*ba", 63) + L"*b", abs, true},
        {L"*" + as + L"*", as, true},
        {L"*" + as + L"b*", as, false},
        {L"*" + repeat(L"a", 128) + L"b*" + repeat(L"a", 128), as, false},
        {std::wstring(255, L'?'), as, true},
        {std::wstring(254, L'?'), as, false},
        {std::wstring(100000, L'*') + L"a", as, true},
        {std::wstring(100000, L'?'), as, false},
        {repeat(L"*\x00c9", 127), e, false},
    };
    SampleRecord record;
    for (const Case& c : cases) {
        record.name(c.name.c_str());
        const std::wstring text = L"[NAME]==\"" + c.pattern + L"\"";
        EXPECT_EQ(valueOf(text, record), c.matches ? L"1" : L"0") << shortened(text);
    }
}

TEST(HostileCriteria, CutAnywhere) {
    SampleRecord record;
    int refused = 0;
    for (const wchar_t* whole :
         {L"[NAME]==\"*.h\" && ([BYTE]&8)!=0 || !([PATHID]>=12.5)",
          L"length(join([SHORT],[TITLE]+\"x\"))<=-(limit*+3)/2", L"\"a\"+wanted!=[NAME]|1",
          L"((((1)+2)*3)-4)/5&6|7&&8||9==10!=11>=12<=13>14<15", L"join(length(\"\"),\"\")<\"z\""}) {
        for (std::size_t length = std::wcslen(whole); length > 0; --length)
            refused += valueOf(std::wstring(whole, length - 1), record) == L"fails";
        for (std::size_t from = std::wcslen(whole); from > 0; --from)
            refused += valueOf(whole + from, record, false) == L"fails";
    }
    EXPECT_GT(refused, 150) << "the cuts have to hurt";
}

}  // namespace
}  // namespace fscanner
