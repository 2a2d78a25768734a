#include "fscanner/common/pattern.h"

#include "fscanner/common/wildcard_match.h"

namespace fscanner {

namespace {

using wildcard::ExactFold;
using wildcard::LowerFold;

/// Whether `piece` matches the characters at `text`. A loop, as the pieces of
/// real patterns are too short to be worth a call.
template <typename Fold>
bool equalRun(std::wstring_view piece, const wchar_t* text) {
    for (const wchar_t c : piece) {
        if (!Fold::same(c, *text) && c != L'?') return false;
        ++text;
    }
    return true;
}

template <typename Fold>
bool startsWith(std::wstring_view text, std::wstring_view piece) {
    return text.size() >= piece.size() && equalRun<Fold>(piece, text.data());
}

template <typename Fold>
bool endsWith(std::wstring_view text, std::wstring_view piece) {
    return text.size() >= piece.size() &&
           equalRun<Fold>(piece, text.data() + (text.size() - piece.size()));
}

/// Finds the piece (not empty), leftmost, and removes the text up to its end.
template <typename Fold>
bool consume(std::wstring_view& text, std::wstring_view piece) {
    if (text.size() < piece.size()) return false;
    const wchar_t first = piece.front();
    const std::wstring_view rest = piece.substr(1);
    const wchar_t* const last = text.data() + (text.size() - piece.size());
    for (const wchar_t* at = text.data(); at <= last; ++at) {
        if (!Fold::same(first, *at) && first != L'?') continue;
        if (!equalRun<Fold>(rest, at + 1)) continue;
        text.remove_prefix(static_cast<std::size_t>(at - text.data()) + piece.size());
        return true;
    }
    return false;
}

}  // namespace

CompiledPattern::CompiledPattern(std::wstring_view pattern, bool caseSensitive)
    : text_(pattern), caseSensitive_(caseSensitive) {
    split();
    kind_ = classify();
    const bool simple = kind_ != Kind::all && kind_ != Kind::general;
    const Piece& inner = pieces_[pieces_.size() / 2];
    literal_ = simple ? (kind_ == Kind::prefix ? pieces_[0] : inner) : Piece{0, 0};
}

void CompiledPattern::split() {
    std::size_t start = 0;
    for (bool last = false; !last;) {
        std::size_t end = text_.find(L'*', start);
        last = end == text_.npos;
        if (last) end = text_.size();
        // A run of "*" is one: no empty piece in the middle.
        if (start == 0 || last || end != start) pieces_.push_back({start, end - start});
        start = end + 1;
    }
}

CompiledPattern::Kind CompiledPattern::classify() const {
    if (text_.find(L'?') != text_.npos) return Kind::general;
    if (pieces_.size() == 1) return Kind::exact;
    const bool head = pieces_.front().length != 0;
    const bool tail = pieces_.back().length != 0;
    if (pieces_.size() == 3 && !head && !tail) return Kind::contains;
    if (pieces_.size() > 2 || (head && tail)) return Kind::general;
    if (head) return Kind::prefix;
    return tail ? Kind::suffix : Kind::all;
}

/// The first piece lies at the start, the last at the end, and each one between
/// is taken where it comes first: what a later place leaves, an earlier one does.
template <typename Fold>
bool CompiledPattern::matchesPieces(std::wstring_view text) const {
    const std::wstring_view head = view(pieces_.front());
    const std::wstring_view tail = view(pieces_.back());
    if (pieces_.size() == 1) return text.size() == head.size() && startsWith<Fold>(text, head);
    if (!startsWith<Fold>(text, head)) return false;
    text.remove_prefix(head.size());
    if (!endsWith<Fold>(text, tail)) return false;
    text.remove_suffix(tail.size());
    for (std::size_t i = 1; i + 1 < pieces_.size(); ++i) {
        if (!consume<Fold>(text, view(pieces_[i]))) return false;
    }
    return true;
}

template <typename Fold>
bool CompiledPattern::matchesAs(std::wstring_view text) const {
    switch (kind_) {
        case Kind::exact:
            return text.size() == literal_.length && startsWith<Fold>(text, literal());
        case Kind::prefix:
            return startsWith<Fold>(text, literal());
        case Kind::suffix:
            return endsWith<Fold>(text, literal());
        case Kind::contains:
            return consume<Fold>(text, literal());
        case Kind::all:
            return true;
        default:
            return matchesPieces<Fold>(text);
    }
}

bool CompiledPattern::matches(std::wstring_view text) const {
    return caseSensitive_ ? matchesAs<ExactFold>(text) : matchesAs<LowerFold>(text);
}

}  // namespace fscanner
