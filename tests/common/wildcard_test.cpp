#include "fscanner/common/wildcard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwctype>
#include <map>
#include <random>
#include <string_view>
#include <vector>

#include "fscanner/common/pattern.h"
#include "fscanner/common/utf8.h"
#include "support/scoped_locale.h"

using namespace fscanner;

namespace {

/// Every text over `alphabet` of at most five characters.
std::vector<std::wstring> everyText(std::wstring_view alphabet) {
    std::vector<std::wstring> texts{L""};
    for (std::size_t i = 0; i < texts.size() && texts[i].size() < 5; ++i) {
        const std::wstring shorter = texts[i];
        for (const wchar_t c : alphabet) texts.push_back(shorter + c);
    }
    return texts;
}

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
/// before that ending stands for at least one character.
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

// The obvious matcher itself is tested with these.
TEST(Wildcard, MatchesPaths) {
    const struct {
        const wchar_t *pattern, *path;
        bool recursive, matches;
    } cases[] = {
        {L"/data", L"/data/", false, false},
        {L"/data", L"/data/x/y", true, true},
        {L"/data", L"/database", true, false},
        {L"/home/user/", L"/home/user", false, true},
        // One "*" stands for one directory, not for two.
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
        EXPECT_EQ(obviousPathMatch(c.pattern, c.path, c.recursive), c.matches);
    }
}

TEST(Wildcard, FoldsByTheCaseMode) {
    for (const bool caseSensitive : {false, true}) {
        EXPECT_EQ(wildvccmp(L"*.TXT", L"a.txt", caseSensitive), !caseSensitive);
        EXPECT_EQ(wildvcpathcmp(L"/data", L"/DATA/x", true, caseSensitive), !caseSensitive);
        EXPECT_EQ(wcsnvccmp(L"abX", L"aBY", 2, caseSensitive) == 0, !caseSensitive);
    }
    EXPECT_EQ(wildcmp(L"*.TXT", L"a.txt", false), 0);
    EXPECT_EQ(wildcasecmp(L"A*B", L"a*", true), 1);
    EXPECT_EQ(wildpathcmp(L"/DATA", L"/data/x", true), 0);
    EXPECT_EQ(wildcasepathcmp(L"/DATA", L"/data/x", true), 1);
    EXPECT_GT(wcsvccmp(L"a", L"A", true), 0);
    EXPECT_LT(wcsvccmp(L"a", L"B", false), 0);
}

TEST(Wildcard, AgreesWithTheObviousMatchers) {
    const auto texts = everyText(L"ab/");
    for (const std::wstring& pattern : everyText(L"a/*?")) {
        SCOPED_TRACE(pattern);
        const wchar_t* const p = pattern.c_str();
        for (const std::wstring& text : texts) {
            const wchar_t* const t = text.c_str();
            ASSERT_EQ(wildcmp(p, t, false), obviousMatch(pattern, text)) << text;
            ASSERT_EQ(wildcmp(p, t, true), obviousPartial(pattern, text)) << text;
            for (const bool recursive : {false, true})
                ASSERT_EQ(wildpathcmp(p, t, recursive), obviousPathMatch(pattern, text, recursive))
                    << text << " " << recursive;
        }
    }
}

// This would not end if the matcher went back to every "*".
TEST(Wildcard, WorstCaseEnds) {
    std::wstring pattern;
    for (int i = 0; i < 100; ++i) pattern += L"a*";
    pattern += L'b';
    const std::wstring text(2000, L'a');
    EXPECT_EQ(wildcmp(pattern.c_str(), text.c_str(), false), 0);
    EXPECT_FALSE(CompiledPattern(pattern, true).matches(text));
}

/// Characters with unusual case in some script: dotted and dotless i, the Kelvin
/// and Angstrom signs, sharp and long s, a final sigma.
constexpr std::wstring_view kPeculiar =
    L"IiKksS@`[{\x130\x131\x212A\x212B\xC5\xE5\xDF\x17F\x3A3\x3C3\x3C2";

TEST(Wildcard, FoldsAndUppersAsTheLocaleDoes) {
    for (const char* name : {"C", "C.UTF-8", "tr_TR.UTF-8", "tr_TR.ISO-8859-9", "az_AZ.UTF-8"}) {
        const ScopedLocale locale(name);
        if (!locale.available()) continue;
        SCOPED_TRACE(name);
        for (const wchar_t p : kPeculiar) {
            for (const wchar_t t : kPeculiar) {
                const std::wstring pattern(1, p), text(1, t);
                const bool same =
                    std::towlower(static_cast<wint_t>(p)) == std::towlower(static_cast<wint_t>(t));
                EXPECT_EQ(wildcasecmp(pattern.c_str(), text.c_str(), false), same)
                    << +p << " " << +t;
                EXPECT_EQ(CompiledPattern(pattern, false).matches(text), same) << +p << " " << +t;
            }
        }
        for (wint_t c = 1; c < 0x600; ++c) {
            const wchar_t source[] = {static_cast<wchar_t>(c), L'x', 0};
            wchar_t upper[] = {L'?', L'?', L'?', L'?'};
            wcsupper(source, upper);
            EXPECT_EQ(static_cast<wint_t>(upper[0]), std::towupper(c));
            EXPECT_STREQ(upper + 1, L"X");
            EXPECT_EQ(upper[3], L'?');
        }
    }
    wchar_t text[] = L"a-z{`";
    wcsupper(text);
    EXPECT_STREQ(text, L"A-Z{`");
}

std::wstring draw(std::mt19937& random, std::wstring_view alphabet, std::size_t longest) {
    std::wstring text(random() % (longest + 1), 0);
    for (wchar_t& c : text) c = alphabet[random() % alphabet.size()];
    return text;
}

/// The text in UTF-8.
std::string utf8Of(const std::wstring& text) {
    std::vector<unsigned char> bytes(6 * text.size() + 1);
    stringToUTF8(bytes.data(), static_cast<unsigned>(bytes.size()), text.c_str());
    return reinterpret_cast<const char*>(bytes.data());
}

// Bytes behind a text may be loaded with it, and must not count. Near the end of a buffer
// there are none, and the slow paths are used.
TEST(CompiledPattern, JudgesBytesAsItMatchesTheirCharacters) {
    constexpr std::size_t behind = 48;
    std::mt19937 random(1);
    for (const char* localeName : {"C", "C.UTF-8", "tr_TR.UTF-8"}) {
        const ScopedLocale locale(localeName);
        if (!locale.available()) continue;
        std::map<Verdict, int> verdicts;
        for (int i = 0; i < 100'000; ++i) {
            const std::wstring pattern = draw(random, L"aBbik**", random() % 20 ? 7 : 40);
            const std::wstring text =
                draw(random, random() % 2 ? L"aAbB" : L"aAbBiIkK?\x131\x130\x212A\xE9",
                     random() % 10 ? 10 : 80);
            const bool caseSensitive = random() % 2 == 0;
            // With "?", and of a view that is not terminated.
            const std::wstring any = draw(random, L"aB**?", 10);
            ASSERT_EQ(
                CompiledPattern({(any + L'*').c_str(), any.size()}, caseSensitive).matches(text),
                wildvccmp(any.c_str(), text.c_str(), caseSensitive) != 0)
                << any << " against " << text;
            const CompiledPattern compiled(pattern, caseSensitive);
            const std::string bytes = utf8Of(text);
            const std::string buffer = bytes + std::string(behind, "ab*\0"[random() % 4]);
            for (const std::size_t readable : {bytes.size(), bytes.size() + behind}) {
                SCOPED_TRACE(testing::Message() << localeName << readable);
                const Verdict verdict = compiled.judge({buffer.data(), bytes.size(), readable});
                ++verdicts[verdict];
                if (verdict != Verdict::unsure) {
                    ASSERT_FALSE(checkWildCard(text.c_str())) << text;
                    ASSERT_EQ(verdict == Verdict::match, compiled.matches(text))
                        << pattern << " against " << text;
                } else if (isAscii(text) && !checkWildCard(text.c_str())) {
                    ASSERT_NE(pattern.find(L'i'), pattern.npos) << pattern << " against " << text;
                }
            }
        }
        EXPECT_GT(verdicts[Verdict::match], 10'000);
        EXPECT_GT(verdicts[Verdict::noMatch], 10'000);
    }
}

// One column for each of ==, >=, <=, >, <, != and an unknown operator.
template <typename T, typename... Flag>
std::string verdicts(T v, T r, Flag... caseSensitive) {
    std::string result;
    for (unsigned op = 0; op < 7; ++op)
        result += checkSimpleExpression(v, op, r, caseSensitive...) ? '1' : '0';
    return result;
}

TEST(Comparison, AppliesOperatorCodes) {
    EXPECT_EQ(verdicts<unsigned char>(200, 100), "0101010");
    EXPECT_EQ(verdicts<unsigned short>(7, 7), "1110000");
    EXPECT_EQ(verdicts<unsigned>(1, 0xFFFFFFFF), "0010110");  // unsigned: not above -1
    EXPECT_EQ(verdicts<unsigned long long>(1ULL << 40, 0), "0101010");
    EXPECT_EQ(verdicts(L"abc", L"a?c", true), "1101000");  // a pattern for == and != alone
    EXPECT_EQ(verdicts(L"a?c", L"abc", true), "0010110");  // the reference is the pattern
    EXPECT_EQ(verdicts(L"ABC", L"abc", true), "0010110");
    EXPECT_EQ(verdicts(L"ABC", L"abc", false), "1110000");
}

}  // namespace
