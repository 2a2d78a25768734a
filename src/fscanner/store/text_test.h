#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace fscanner {

/// A text as it lies in a file, UTF-8, and how many bytes can be read from its start
/// on: blocks are loaded whole, and what lies behind the text does not count. Not
/// initialised: a scan makes one for each record.
struct StoredText {
    std::string_view view() const { return {at, size}; }

    const char* at;
    std::size_t size;
    std::size_t readable;
};

/// What decides whether a test on bytes says what a comparison of characters would.
struct TextTraits {
    bool pattern = false;  ///< it holds "*", "?" or a terminator
    bool foreign = false;  ///< not all of it is ASCII
};

namespace text_test {

/// ASCII small letters. In some locales "I" is no capital of "i".
constexpr std::array<char, 256> SMALL = [] {
    std::array<char, 256> table{};
    for (unsigned c = 0; c < table.size(); ++c) {
        table[c] = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    }
    return table;
}();

inline char small(char c) {
    return SMALL[static_cast<unsigned char>(c)];
}

inline bool equal(const char* text, std::string_view literal, bool fold) {
    if (literal.empty()) return true;
    // Most texts differ in the first character: no call for them.
    if (!fold) return *text == literal[0] && std::memcmp(text, literal.data(), literal.size()) == 0;
    return std::equal(literal.begin(), literal.end(), text,
                      [](char wanted, char c) { return wanted == small(c); });
}

/// One position after the other.
inline bool containsPlainly(std::string_view text, std::string_view literal, bool fold) {
    if (!fold) return text.find(literal) != text.npos;
    for (; text.size() >= literal.size(); text.remove_prefix(1)) {
        if (equal(text.data(), literal, true)) return true;
    }
    return false;
}

inline TextTraits examinePlainly(std::string_view text) {
    TextTraits traits;
    for (const char c : text) {
        traits.pattern |= c == '*' || c == '?' || c == '\0';
        traits.foreign |= static_cast<signed char>(c) < 0;
    }
    return traits;
}

#ifdef __SSE2__

constexpr std::size_t BLOCK = sizeof(__m128i);

inline __m128i load(const char* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}
inline __m128i equalTo(__m128i block, char c) {
    return _mm_cmpeq_epi8(block, _mm_set1_epi8(c));
}
/// A bit for each byte whose highest bit is set.
inline unsigned bits(__m128i block) {
    return static_cast<unsigned>(_mm_movemask_epi8(block));
}
/// Of the first `count` bytes.
inline unsigned bits(__m128i block, std::size_t count) {
    return count < BLOCK ? bits(block) & ((1U << count) - 1) : bits(block);
}
inline __m128i special(__m128i block) {
    const __m128i wild = _mm_or_si128(equalTo(block, '*'), equalTo(block, '?'));
    return _mm_or_si128(wild, equalTo(block, '\0'));
}

/// Two blocks at a time, without a branch between them: most names end in one of both,
/// and which of them cannot be foretold.
inline TextTraits examine(const StoredText& stored) {
    const char* at = stored.at;
    std::size_t left = stored.size;
    if (stored.readable < left + 2 * BLOCK) return examinePlainly(stored.view());
    unsigned pattern = 0, foreign = 0;
    for (;; at += 2 * BLOCK, left -= 2 * BLOCK) {
        const __m128i first = load(at), second = load(at + BLOCK);
        const unsigned mask = left < 2 * BLOCK ? (1U << left) - 1 : ~0U;
        pattern |= (bits(special(first)) | bits(special(second)) << BLOCK) & mask;
        foreign |= (bits(first) | bits(second) << BLOCK) & mask;
        if (left <= 2 * BLOCK) return {pattern != 0, foreign != 0};
    }
}

/// The bytes of a block that may be `c`, a small letter or no letter.
inline __m128i candidates(__m128i block, char c, bool fold) {
    const bool letter = c >= 'a' && c <= 'z';
    return equalTo(fold && letter ? _mm_or_si128(block, _mm_set1_epi8(0x20)) : block, c);
}

/// The literal's two ends at 16 places at once; what is between where both fit.
inline bool contains(const StoredText& stored, std::string_view literal, bool fold) {
    const std::string_view text = stored.view();
    if (text.size() < literal.size()) return false;
    if (literal.empty() || stored.readable < text.size() + BLOCK)
        return containsPlainly(text, literal, fold);
    const std::size_t last = literal.size() - 1;
    std::size_t places = text.size() - last;
    for (const char* at = text.data();; at += BLOCK, places -= BLOCK) {
        const __m128i both = _mm_and_si128(candidates(load(at), literal.front(), fold),
                                           candidates(load(at + last), literal.back(), fold));
        for (unsigned found = bits(both, places); found != 0; found &= found - 1) {
            if (equal(at + std::countr_zero(found), literal, fold)) return true;
        }
        if (places <= BLOCK) return false;
    }
}

/// Whether the bytes at `at` are the literal, of at most 16 bytes that are all readable.
inline bool blockEquals(const char* at, const char* literal, std::size_t size, bool fold) {
    __m128i block = load(at);
    if (fold) {
        const __m128i fromA = _mm_cmpgt_epi8(block, _mm_set1_epi8('A' - 1));
        const __m128i toZ = _mm_cmplt_epi8(block, _mm_set1_epi8('Z' + 1));
        const __m128i capitals = _mm_and_si128(fromA, toZ);
        block = _mm_or_si128(block, _mm_and_si128(capitals, _mm_set1_epi8(0x20)));
    }
    const unsigned all = size < BLOCK ? (1U << size) - 1 : (1U << BLOCK) - 1;
    return bits(_mm_cmpeq_epi8(block, load(literal)), size) == all;
}

#else

constexpr std::size_t BLOCK = 0;  // so that blockEquals is never called
inline bool blockEquals(const char*, const char*, std::size_t, bool) {
    return false;
}
inline TextTraits examine(const StoredText& stored) {
    return examinePlainly(stored.view());
}
inline bool contains(const StoredText& stored, std::string_view literal, bool fold) {
    return containsPlainly(stored.view(), literal, fold);
}

#endif

}  // namespace text_test

/// A literal of ASCII, or a pattern with one "*" in front, behind, or both, tested on
/// the bytes of a stored text.
struct TextTest {
    enum class Kind { exact, prefix, suffix, contains };

    [[gnu::always_inline]] bool holds(const StoredText& stored) const {
        const std::string_view text = stored.view();
        if (kind == Kind::contains) return text_test::contains(stored, literal, fold);
        if (text.size() < literal.size()) return false;
        if (kind == Kind::exact && text.size() != literal.size()) return false;
        const std::size_t at = kind == Kind::suffix ? text.size() - literal.size() : 0;
        if (literal.size() <= text_test::BLOCK && stored.readable >= text.size() + text_test::BLOCK)
            return text_test::blockEquals(text.data() + at, block.data(), literal.size(), fold);
        return text_test::equal(text.data() + at, literal, fold);
    }
    /// Whether the outcome is that of a comparison by characters.
    bool isSureOf(TextTraits traits) const {
        return !traits.pattern && (!traits.foreign || judgesForeign);
    }

    Kind kind = Kind::exact;
    bool fold = false;
    bool holdsForSure = true;      ///< no letter whose fold depends on the locale
    bool judgesForeign = true;     ///< nor one that another script's letter folds to
    std::string literal;           ///< small letters when folding
    std::array<char, 16> block{};  ///< the literal's first bytes
};

}  // namespace fscanner
