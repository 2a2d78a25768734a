#include "fscanner/common/pattern.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/generate.h"
#include "fscanner/common/wildcard.h"

using namespace fscanner;

namespace {

using Kind = CompiledPattern::Kind;

TEST(CompiledPattern, RecognisesTheSimpleShapes) {
    const struct {
        const wchar_t* pattern;
        Kind kind;
        const wchar_t* literal;
    } cases[] = {
        {L"", Kind::exact, L""},         {L"abc", Kind::exact, L"abc"},
        {L"abc*", Kind::prefix, L"abc"}, {L"abc**", Kind::prefix, L"abc"},
        {L"*.h", Kind::suffix, L".h"},   {L"***.h", Kind::suffix, L".h"},
        {L"*b*", Kind::contains, L"b"},  {L"**b**", Kind::contains, L"b"},
        {L"*", Kind::all, L""},          {L"***", Kind::all, L""},
        {L"a*b", Kind::general, L""},    {L"*a*b*", Kind::general, L""},
        {L"a?", Kind::general, L""},     {L"*?", Kind::general, L""},
        {L"a*b*", Kind::general, L""},   {L"*a*b", Kind::general, L""},
    };
    for (const auto& c : cases) {
        const CompiledPattern pattern(c.pattern, true);
        EXPECT_EQ(pattern.kind(), c.kind) << c.pattern;
        EXPECT_EQ(pattern.literal(), c.literal) << c.pattern;
    }
}

TEST(CompiledPattern, AgreesWithTheMatcher) {
    const auto texts = everyText(L"abA", 5);
    for (const std::wstring& text : everyText(L"aB*?", 5)) {
        const CompiledPattern exact(text, true);
        const CompiledPattern folded(text, false);
        for (const std::wstring& name : texts) {
            ASSERT_EQ(exact.matches(name), wildvccmp(text.c_str(), name.c_str(), true) != 0)
                << text << " against " << name;
            ASSERT_EQ(folded.matches(name), wildvccmp(text.c_str(), name.c_str(), false) != 0)
                << text << " against " << name << " without case";
        }
    }
}

// Long enough for several pieces, and for a middle piece that occurs twice.
TEST(CompiledPattern, AgreesWithTheMatcherOnLongPatterns) {
    std::mt19937 random(1);
    const auto draw = [&random](std::wstring_view alphabet, std::size_t longest) {
        std::wstring text(random() % (longest + 1), 0);
        for (wchar_t& c : text) c = alphabet[random() % alphabet.size()];
        return text;
    };
    int matched = 0;
    for (int i = 0; i < 100'000; ++i) {
        const std::wstring text = draw(L"ab**?", 10);
        const std::wstring name = draw(L"abB\xE9", 14);
        for (const bool caseSensitive : {true, false}) {
            const bool expected = wildvccmp(text.c_str(), name.c_str(), caseSensitive) != 0;
            ASSERT_EQ(CompiledPattern(text, caseSensitive).matches(name), expected)
                << text << " against " << name;
            matched += expected;
        }
    }
    EXPECT_GT(matched, 1000);  // the draw tells something
}

TEST(CompiledPattern, OwnsItsText) {
    std::vector<CompiledPattern> patterns;
    patterns.emplace_back(std::wstring(L"*.c"), true);
    patterns.emplace_back(std::wstring(L"short*"), false);
    patterns.insert(patterns.begin(), patterns[1]);
    patterns.shrink_to_fit();
    EXPECT_TRUE(patterns[0].matches(L"SHORTER"));
    EXPECT_TRUE(patterns[1].matches(L"main.c"));
    EXPECT_FALSE(patterns[1].matches(L"main.h"));
    // A view need not be terminated.
    EXPECT_TRUE(patterns[1].matches(std::wstring_view(L"main.cpp").substr(0, 6)));
}

}  // namespace
