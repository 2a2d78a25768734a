#include "fscanner/common/wildcard.h"

#include <gtest/gtest.h>

#include <cwctype>
#include <string>
#include <string_view>
#include <vector>

#include "common/generate.h"
#include "fscanner/common/pattern.h"
#include "fscanner/common/wildcard_match.h"
#include "support/scoped_locale.h"

using namespace fscanner;

namespace {

/// The obvious matcher, straight from the meaning of "*" and "?".
bool obviousMatch(std::wstring_view pattern, std::wstring_view text) {
    if (pattern.empty()) return text.empty();
    if (pattern[0] == L'*') {
        return obviousMatch(pattern.substr(1), text) ||
               (!text.empty() && obviousMatch(pattern, text.substr(1)));
    }
    if (text.empty() || (pattern[0] != L'?' && pattern[0] != text[0])) return false;
    return obviousMatch(pattern.substr(1), text.substr(1));
}

bool obviousPartial(std::wstring_view pattern, std::wstring_view text) {
    const std::wstring_view start = pattern.substr(0, pattern.find(L'*'));
    if (start.size() == pattern.size() && text.size() > start.size()) return false;
    const std::size_t compared = std::min(start.size(), text.size());
    return obviousMatch(start.substr(0, compared), text.substr(0, compared));
}

/// Whether the pattern, matched by `path` up to `at`, covers the rest.
bool obviousCover(std::wstring_view pattern, std::wstring_view path, std::size_t at,
                  bool recursive) {
    if (pattern.find(L'*') != pattern.npos)
        return path[at] == L'/' && (recursive || at + 1 == path.size());
    return recursive && (path[at] == L'/' || (at > 0 && path[at - 1] == L'/'));
}

/// Whether the pattern without its last "/" or "/*" is the path. A "*" right
/// before that ending stands for one character at least.
bool obviousDirectory(std::wstring_view pattern, std::wstring_view path) {
    for (const std::wstring_view ending : {L"/", L"/*"}) {
        if (!pattern.ends_with(ending)) continue;
        std::wstring stem(pattern.substr(0, pattern.size() - ending.size()));
        if (stem.ends_with(L'*')) stem += L"?*";
        if (obviousMatch(stem, path)) return true;
    }
    return false;
}

bool obviousPathMatch(std::wstring_view pattern, std::wstring_view path, bool recursive) {
    if (obviousMatch(pattern, path) || obviousDirectory(pattern, path)) return true;
    for (std::size_t at = 0; at < path.size(); ++at) {
        if (obviousMatch(pattern, path.substr(0, at)) && obviousCover(pattern, path, at, recursive))
            return true;
    }
    return false;
}

TEST(Wildcard, MatchesNamesByTheCaseFlag) {
    const struct {
        const wchar_t *pattern, *text;
        bool exact, folded, partial;
    } cases[] = {
        {L"*.TXT", L"a.txt", false, true, true},
        {L"a*b", L"a*", false, false, true},  // the text's "*" is an ordinary character
        {L"a?c", L"a/c", true, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.pattern << " against " << c.text);
        EXPECT_EQ(wildcmp(c.pattern, c.text, false), c.exact);
        EXPECT_EQ(wildcasecmp(c.pattern, c.text, false), c.folded);
        EXPECT_EQ(wildcmp(c.pattern, c.text, true), c.partial);
        EXPECT_EQ(wildvccmp(c.pattern, c.text, true), c.exact);
        EXPECT_EQ(wildvccmp(c.pattern, c.text, false), c.folded);
    }
}

// What the obvious matcher is held to.
TEST(Wildcard, MatchesPaths) {
    const struct {
        const wchar_t *pattern, *path;
        bool recursive, matches;
    } cases[] = {
        {L"/data", L"/data/", false, false},
        {L"/data", L"/data/x/y", true, true},
        {L"/data", L"/database", true, false},
        {L"/home/user/", L"/home/user", false, true},
        // One "*" stands for the directory, not two.
        {L"/home/user/*", L"/home/user", false, true},
        {L"/home/user/**", L"/home/user", true, false},
        {L"/d*ta", L"/data/", false, true},
        {L"/d*ta", L"/data/x", false, false},
        {L"/d*ta", L"/data/x", true, true},
        {L"/home/*/docs/", L"/home/u/docs/x", true, false},  // no cover behind "*" and a last "/"
        {L"", L"/x", true, true},
        {L"", L"x", true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.pattern << " over " << c.path << " " << c.recursive);
        EXPECT_EQ(wildpathcmp(c.pattern, c.path, c.recursive), c.matches);
        EXPECT_EQ(wildvcpathcmp(c.pattern, c.path, c.recursive, true), c.matches);
        EXPECT_EQ(obviousPathMatch(c.pattern, c.path, c.recursive), c.matches);
    }
    EXPECT_EQ(wildpathcmp(L"/DATA", L"/data/x", true), 0);
    EXPECT_EQ(wildcasepathcmp(L"/DATA", L"/data/x", true), 1);
    EXPECT_EQ(wildvcpathcmp(L"/data", L"/DATA/x", true, false), 1);
}

TEST(Wildcard, AgreesWithTheObviousNameMatcher) {
    const auto texts = everyText(L"ab/", 5);
    for (const std::wstring& pattern : everyText(L"ab*?", 5)) {
        for (const std::wstring& text : texts) {
            ASSERT_EQ(wildcmp(pattern.c_str(), text.c_str(), false), obviousMatch(pattern, text))
                << pattern << " against " << text;
            ASSERT_EQ(wildcmp(pattern.c_str(), text.c_str(), true), obviousPartial(pattern, text))
                << pattern << " partially against " << text;
        }
    }
}

TEST(Wildcard, AgreesWithTheObviousPathMatcher) {
    const auto paths = everyText(L"a/b", 5);
    for (const std::wstring& pattern : everyText(L"a/*?", 5)) {
        for (const std::wstring& path : paths) {
            for (const bool recursive : {false, true}) {
                ASSERT_EQ(wildpathcmp(pattern.c_str(), path.c_str(), recursive),
                          obviousPathMatch(pattern, path, recursive))
                    << pattern << " over " << path << ", recursive " << recursive;
            }
        }
    }
}

struct CountingFold {
    static inline unsigned long compared = 0;
    static bool same(wchar_t pattern, wchar_t text) {
        ++compared;
        return pattern == text;
    }
};

TEST(Wildcard, WorstCaseIsQuadratic) {
    std::wstring pattern;
    for (int i = 0; i < 100; ++i) pattern += L"a*";
    pattern += L"aaaaab";
    const std::wstring text(2000, L'a');
    CountingFold::compared = 0;
    EXPECT_FALSE(
        (wildcard::match<CountingFold>(pattern.c_str(), text.c_str(), wildcard::NameRule{})));
    EXPECT_LE(CountingFold::compared, text.size() * pattern.size());
}

/// Characters whose case is peculiar somewhere: dotted and dotless i, the Kelvin
/// and Angstrom signs, sharp and long s, a final sigma.
constexpr std::wstring_view peculiar =
    L"IiKksS@`[{\x130\x131\x212A\x212B\xC5\xE5\xDF\x17F\x3A3\x3C3\x3C2";

TEST(Wildcard, FoldsAsTheLocaleDoes) {
    for (const char* name : {"C", "C.UTF-8", "tr_TR.UTF-8", "tr_TR.ISO-8859-9", "az_AZ.UTF-8"}) {
        const ScopedLocale locale(name);
        if (!locale.available()) continue;
        for (const wchar_t p : peculiar) {
            for (const wchar_t t : peculiar) {
                const wchar_t pattern[] = {p, 0};
                const wchar_t text[] = {t, 0};
                const bool same =
                    std::towlower(static_cast<wint_t>(p)) == std::towlower(static_cast<wint_t>(t));
                SCOPED_TRACE(testing::Message() << std::hex << +p << " " << +t << " in " << name);
                EXPECT_EQ(wildcasecmp(pattern, text, false), same);
                EXPECT_EQ(CompiledPattern(pattern, false).matches(text), same);
            }
        }
    }
}

TEST(Wildcard, UppersAsTheLocaleDoes) {
    for (const char* name : {"C", "C.UTF-8", "tr_TR.UTF-8"}) {
        const ScopedLocale locale(name);
        if (!locale.available()) continue;
        for (wint_t c = 1; c < 0x600; ++c) {
            const wchar_t source[] = {static_cast<wchar_t>(c), L'x', 0};
            wchar_t upper[] = {L'?', L'?', L'?', L'?'};
            wcsupper(source, upper);
            EXPECT_EQ(static_cast<wint_t>(upper[0]), std::towupper(c)) << name;
            EXPECT_STREQ(upper + 1, L"X");
            EXPECT_EQ(upper[3], L'?');
        }
    }
    wchar_t text[] = L"a-z{`";
    wcsupper(text);
    EXPECT_STREQ(text, L"A-Z{`");
}

TEST(Comparison, ChoosesTheCaseMode) {
    EXPECT_GT(wcsvccmp(L"a", L"A", true), 0);
    EXPECT_EQ(wcsvccmp(L"aB", L"Ab", false), 0);
    EXPECT_LT(wcsvccmp(L"a", L"B", false), 0);
    EXPECT_EQ(wcsnvccmp(L"abX", L"abY", 2, true), 0);
    EXPECT_NE(wcsnvccmp(L"abX", L"aBY", 2, true), 0);
    EXPECT_EQ(wcsnvccmp(L"abX", L"aBY", 2, false), 0);
    EXPECT_TRUE(checkWildCard(L"ab?") && checkWildCard(L"*") && !checkWildCard(L"[a]\\"));
}

template <typename T>
std::string verdicts(T v, T r) {
    std::string result;
    for (unsigned op = 0; op < 7; ++op) result += checkSimpleExpression(v, op, r) ? '1' : '0';
    return result;
}

// One column for each of ==, >=, <=, >, <, != and an unknown operator.
TEST(Comparison, AppliesOperatorCodes) {
    EXPECT_EQ(verdicts<unsigned char>(200, 100), "0101010");
    EXPECT_EQ(verdicts<unsigned short>(7, 7), "1110000");
    EXPECT_EQ(verdicts<unsigned>(1, 0xFFFFFFFF), "0010110");  // unsigned: not above -1
    EXPECT_EQ(verdicts<unsigned long long>(1ULL << 40, 0), "0101010");

    const auto texts = [](const wchar_t* v, const wchar_t* r, bool caseSensitive) {
        std::string result;
        for (unsigned op = 0; op < 7; ++op)
            result += checkSimpleExpression(v, op, r, caseSensitive) ? '1' : '0';
        return result;
    };
    EXPECT_EQ(texts(L"abc", L"a?c", true), "1101000");  // a pattern for == and != alone
    EXPECT_EQ(texts(L"a?c", L"abc", true), "0010110");  // the reference is the pattern
    EXPECT_EQ(texts(L"ABC", L"abc", true), "0010110");
    EXPECT_EQ(texts(L"ABC", L"abc", false), "1110000");
}

}  // namespace
