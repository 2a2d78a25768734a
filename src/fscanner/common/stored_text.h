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

/// A UTF-8 text that lies in a larger buffer. `readable` is how many bytes may be read from
/// its start on, the text included: blocks of 16 are loaded whole, and the bytes behind the
/// text are ignored. Not initialised, since a scan makes one for each record.
struct StoredText {
    std::string_view view() const { return {at, size}; }
    void removePrefix(std::size_t count) {
        at += count;
        size -= count;
        readable -= count;
    }

    const char* at;
    std::size_t size;
    std::size_t readable;
};

/// Whether a text's bytes can be compared in place of its characters.
struct TextTraits {
    bool pattern = false;  ///< it holds "*", "?" or a terminator
    bool foreign = false;  ///< not all of it is ASCII
};

/// Comparisons of stored texts with literals of ASCII. `fold` ignores the case of ASCII
/// letters; the literal has small letters then.
namespace stored_text {

/// ASCII small letters, whatever the locale says of "I".
constexpr std::array<char, 256> kSmall = [] {
    std::array<char, 256> table{};
    for (unsigned c = 0; c < table.size(); ++c) {
        table[c] = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    }
    return table;
}();

inline char small(char c) {
    return kSmall[static_cast<unsigned char>(c)];
}

inline bool equal(const char* text, std::string_view literal, bool fold) {
    if (literal.empty()) return true;
    // Most texts differ in the first character: no call for them.
    if (!fold) return *text == literal[0] && std::memcmp(text, literal.data(), literal.size()) == 0;
    return std::equal(literal.begin(), literal.end(), text,
                      [](char wanted, char c) { return wanted == small(c); });
}

/// The first place of the literal, which is not empty; null where there is none.
inline const char* findPlainly(std::string_view text, std::string_view literal, bool fold) {
    for (; text.size() >= literal.size(); text.remove_prefix(1)) {
        if (equal(text.data(), literal, fold)) return text.data();
    }
    return nullptr;
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

constexpr std::size_t kBlock = sizeof(__m128i);

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
    return count < kBlock ? bits(block) & ((1U << count) - 1) : bits(block);
}
inline __m128i special(__m128i block) {
    const __m128i wild = _mm_or_si128(equalTo(block, '*'), equalTo(block, '?'));
    return _mm_or_si128(wild, equalTo(block, '\0'));
}

/// Reads two blocks at a time, without a branch between them: most names end in one of the
/// two, and the processor cannot predict in which.
inline TextTraits examine(const StoredText& stored) {
    const char* at = stored.at;
    std::size_t left = stored.size;
    if (stored.readable < left + 2 * kBlock) return examinePlainly(stored.view());
    unsigned pattern = 0, foreign = 0;
    for (;; at += 2 * kBlock, left -= 2 * kBlock) {
        const __m128i first = load(at), second = load(at + kBlock);
        const unsigned mask = left < 2 * kBlock ? (1U << left) - 1 : ~0U;
        pattern |= (bits(special(first)) | bits(special(second)) << kBlock) & mask;
        foreign |= (bits(first) | bits(second) << kBlock) & mask;
        if (left <= 2 * kBlock) return {pattern != 0, foreign != 0};
    }
}

/// The bytes of a block that may be `c`, a small letter or no letter.
inline __m128i candidates(__m128i block, char c, bool fold) {
    const bool letter = c >= 'a' && c <= 'z';
    return equalTo(fold && letter ? _mm_or_si128(block, _mm_set1_epi8(0x20)) : block, c);
}

/// As `findPlainly`: compares the literal's two ends at 16 places at once, and the rest where
/// both are equal.
inline const char* find(const StoredText& stored, std::string_view literal, bool fold) {
    const std::string_view text = stored.view();
    if (text.size() < literal.size()) return nullptr;
    if (stored.readable < text.size() + kBlock) return findPlainly(text, literal, fold);
    const std::size_t last = literal.size() - 1;
    std::size_t places = text.size() - last;
    for (const char* at = text.data();; at += kBlock, places -= kBlock) {
        const __m128i both = _mm_and_si128(candidates(load(at), literal.front(), fold),
                                           candidates(load(at + last), literal.back(), fold));
        for (unsigned found = bits(both, places); found != 0; found &= found - 1) {
            const char* const place = at + std::countr_zero(found);
            if (equal(place, literal, fold)) return place;
        }
        if (places <= kBlock) return nullptr;
    }
}

/// Whether the bytes at `at` are the literal of at most 16 bytes. 16 bytes are readable at
/// both places.
inline bool blockEquals(const char* at, const char* literal, std::size_t size, bool fold) {
    __m128i block = load(at);
    if (fold) {
        const __m128i fromA = _mm_cmpgt_epi8(block, _mm_set1_epi8('A' - 1));
        const __m128i toZ = _mm_cmplt_epi8(block, _mm_set1_epi8('Z' + 1));
        const __m128i capitals = _mm_and_si128(fromA, toZ);
        block = _mm_or_si128(block, _mm_and_si128(capitals, _mm_set1_epi8(0x20)));
    }
    const unsigned all = size < kBlock ? (1U << size) - 1 : (1U << kBlock) - 1;
    return bits(_mm_cmpeq_epi8(block, load(literal)), size) == all;
}

#else

constexpr std::size_t kBlock = 0;
inline bool blockEquals(const char* at, const char* literal, std::size_t size, bool fold) {
    return equal(at, {literal, size}, fold);
}
inline TextTraits examine(const StoredText& stored) {
    return examinePlainly(stored.view());
}
inline const char* find(const StoredText& stored, std::string_view literal, bool fold) {
    return findPlainly(stored.view(), literal, fold);
}

#endif

}  // namespace stored_text

}  // namespace fscanner
