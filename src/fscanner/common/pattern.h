#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace fscanner {

/// A wildcard pattern made ready to be matched against many texts. The answer
/// is always that of `wildvccmp`, in the locale at the time of the match.
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

    Kind kind() const { return kind_; }
    bool caseSensitive() const { return caseSensitive_; }
    /// The "x" of the simple kinds; empty for `all` and `general`. Valid as long
    /// as the pattern.
    std::wstring_view literal() const { return view(literal_); }

private:
    /// A run between two "*", as a range of `text_`.
    struct Piece {
        std::size_t start;
        std::size_t length;
    };

    void split();
    Kind classify() const;
    std::wstring_view view(const Piece& piece) const {
        return {text_.data() + piece.start, piece.length};
    }
    template <typename Fold>
    bool matchesAs(std::wstring_view text) const;
    template <typename Fold>
    bool matchesPieces(std::wstring_view text) const;

    std::wstring text_;
    bool caseSensitive_;
    Kind kind_;
    Piece literal_;  // the "x" of the simple kinds
    // Never empty. The first is bound to the start of the text and the last to
    // its end, where either may be empty; those between float and never are.
    std::vector<Piece> pieces_;
};

}  // namespace fscanner
