#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/common/stored_text.h"

namespace fscanner {

/// What stored bytes tell of a comparison of characters. In this order, so that the least of
/// several verdicts is that of their conjunction.
enum class Verdict { noMatch, unsure, match };

constexpr Verdict opposite(Verdict verdict) {
    if (verdict == Verdict::unsure) return verdict;
    return verdict == Verdict::match ? Verdict::noMatch : Verdict::match;
}

/// A wildcard pattern made ready to be matched against many texts. The answer
/// is always that of `wildvccmp`, in the locale at the time of the match.
///
/// It is analysed once: split at its "*" into pieces, and classified. The same algorithm
/// then runs over wide text and over the UTF-8 bytes of stored text, 16 bytes at a time.
///
/// Owns its text; allocates only when it is made or copied. Matching changes
/// nothing, so that threads may share one.
class CompiledPattern {
public:
    /// What the pattern asks for, "x" being a text without wildcards.
    enum class Kind {
        exact,     ///< x
        prefix,    ///< x*
        suffix,    ///< *x
        contains,  ///< *x*
        all,       ///< *
        general,   ///< anything else
    };

    CompiledPattern(std::wstring_view pattern, bool caseSensitive);

    /// Whether the whole `text`, which holds no terminator, matches.
    bool matches(std::wstring_view text) const;

    /// Whether `judge` can be asked: all of the pattern is ASCII, and no "?" is in it.
    bool judgesBytes() const { return judgesBytes_; }
    /// What the bytes tell of `matches` for the text that they stand for. Unsure where that
    /// text holds a wildcard or a terminator, and where the locale decides about case.
    [[gnu::always_inline]] Verdict judge(const StoredText& text) const {
        const TextTraits traits = stored_text::examine(text);
        if (traits.pattern || (traits.foreign && !judgesForeign_)) return Verdict::unsure;
        if (!matchesKind(ByteText{text, bytes_.data(), !caseSensitive_})) return Verdict::noMatch;
        return holdsForSure_ ? Verdict::match : Verdict::unsure;
    }

    Kind kind() const { return kind_; }
    /// The "x" of the simple kinds; empty for `all` and `general`. Valid as long
    /// as the pattern.
    std::wstring_view literal() const { return {text_.data() + literal_.start, literal_.length}; }

private:
    /// A run between two "*", as a range of `text_` and of `bytes_`.
    struct Piece {
        std::size_t start;
        std::size_t length;
    };

    // A text beside the characters of the pattern, in two forms with the same members.
    // `equalAt` compares a piece that fits there; `consume` finds the leftmost place of a
    // piece that is not empty, and removes the text up to its end.
    struct ByteText {
        std::size_t size() const { return text.size; }
        bool equalAt(std::size_t at, Piece piece) const {
            const char* const wanted = pattern + piece.start;
            if (piece.length <= stored_text::kBlock && text.readable >= at + stored_text::kBlock)
                return stored_text::blockEquals(text.at + at, wanted, piece.length, fold);
            return stored_text::equal(text.at + at, {wanted, piece.length}, fold);
        }
        bool consume(Piece piece) {
            const char* const place =
                stored_text::find(text, {pattern + piece.start, piece.length}, fold);
            if (place) removePrefix(static_cast<std::size_t>(place - text.at) + piece.length);
            return place != nullptr;
        }
        void removePrefix(std::size_t count) { text.removePrefix(count); }
        void removeSuffix(std::size_t count) { text.size -= count; }

        StoredText text;
        const char* pattern;
        bool fold;
    };
    template <typename Fold>
    struct WideText;

    void split();
    Kind classify() const;
    void prepareBytes();
    template <typename Text>
    [[gnu::always_inline]] bool matchesKind(Text text) const {
        if (kind_ == Kind::general) return matchesPieces(text);
        if (kind_ == Kind::contains) return text.consume(literal_);
        const std::size_t size = text.size();
        if (size < literal_.length || (kind_ == Kind::exact && size != literal_.length))
            return false;
        return text.equalAt(kind_ == Kind::suffix ? size - literal_.length : 0, literal_);
    }
    template <typename Text>
    bool matchesPieces(Text text) const;

    std::wstring text_;
    bool caseSensitive_;
    Kind kind_;
    bool judgesBytes_ = false;
    bool holdsForSure_ = true;   // no letter whose fold depends on the locale
    bool judgesForeign_ = true;  // nor one that a letter of another script folds to
    Piece literal_;              // the "x" of the simple kinds
    // Never empty. The first is bound to the start of the text and the last to
    // its end, where either may be empty; those between float and never are.
    std::vector<Piece> pieces_;
    // The pattern as ASCII, in small letters when the case is ignored, and a block behind it,
    // so that each piece can be loaded as one.
    std::string bytes_;
};

extern template bool CompiledPattern::matchesPieces(ByteText) const;

}  // namespace fscanner
