#pragma once

#include <cwctype>

/// The wildcard matcher behind `wildcmp` and its three siblings. `CompiledPattern`, which
/// analyses a pattern first, shares its folds and is checked against it.
///
/// One iterative matcher in three phases, with one restart point:
///
///     literal   up to the pattern's first "*": a mismatch is final
///     star      after it: a mismatch goes back behind the last "*", one character on
///     end       the text is used up: what may be left of the pattern?
///
/// Two policies vary it: the fold says when two characters are equal, the rule
/// what a mismatch or the end means (names, partial names, paths). It is
/// linear in practice and quadratic at worst; nothing allocates.
namespace fscanner::wildcard {

/// Characters as they are.
struct ExactFold {
    static bool same(wchar_t pattern, wchar_t text) { return pattern == text; }
};

/// Characters after `towlower` in the process's locale, which may change at any
/// time. Two ASCII characters are compared here: they are the same letter when
/// bit 0x20 alone divides them. Only the small letter of "I" depends on the
/// locale: it is U+0131 in the Turkish ones.
struct LowerFold {
    static bool same(wchar_t pattern, wchar_t text) {
        if (pattern == text) return true;
        const auto p = static_cast<wint_t>(pattern);
        const auto t = static_cast<wint_t>(text);
        if ((p | t) >= 0x80) return std::towlower(p) == std::towlower(t);
        const wint_t letter = p | 0x20;
        if ((p ^ t) != 0x20 || letter - L'a' >= 26u) return false;
        return letter != L'i' || std::towlower(L'I') == L'i';
    }
};

/// Names: the pattern has to cover the whole text.
struct NameRule {
    static bool literalMismatch(const wchar_t*, const wchar_t*, const wchar_t*) { return false; }
    static bool starMismatch(const wchar_t*, const wchar_t*) { return false; }
    static bool end(const wchar_t* pattern) {
        while (*pattern == L'*') ++pattern;
        return *pattern == 0;
    }
};

/// Names that may still grow: only the literal start can fail.
struct PartialRule : NameRule {
    static bool end(const wchar_t*) { return true; }
};

/// Paths: a directory's pattern may cover what lies below it.
struct PathRule {
    bool recursive;

    bool literalMismatch(const wchar_t* pattern, const wchar_t* path, const wchar_t* start) const {
        if (*pattern != 0 || !recursive) return false;
        return *path == L'/' || (path != start && path[-1] == L'/');
    }
    // Only a "/" of the path ends a pattern here: one that ends in "/" after a
    // "*" has eaten it already, and does not cover what lies below.
    bool starMismatch(const wchar_t* pattern, const wchar_t* path) const {
        return *pattern == 0 && *path == L'/' && (recursive || path[1] == 0);
    }
    // "/a/" and "/a/*" match the directory "/a" itself, "/a/**" does not.
    static bool end(const wchar_t* pattern) {
        if (*pattern != L'/') return NameRule::end(pattern);
        return pattern[1] == 0 || (pattern[1] == L'*' && pattern[2] == 0);
    }
};

template <typename Fold, typename Rule>
bool match(const wchar_t* pattern, const wchar_t* text, Rule rule) {
    const wchar_t* const start = text;
    for (; *text != 0 && *pattern != L'*'; ++pattern, ++text) {
        if (*pattern != L'?' && !Fold::same(*pattern, *text))
            return rule.literalMismatch(pattern, text, start);
    }
    const wchar_t* restartPattern = pattern;
    const wchar_t* restartText = text;
    while (*text != 0) {
        if (*pattern == L'*') {
            if (*++pattern == 0) return true;
            restartPattern = pattern;
            restartText = text + 1;
        } else if (*pattern == L'?' || Fold::same(*pattern, *text)) {
            ++pattern;
            ++text;
        } else {
            if (rule.starMismatch(pattern, text)) return true;
            pattern = restartPattern;
            text = restartText++;
        }
    }
    return rule.end(pattern);
}

}  // namespace fscanner::wildcard
