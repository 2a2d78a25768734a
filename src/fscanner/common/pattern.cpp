#include "fscanner/common/pattern.h"

#include <cwchar>

#include "fscanner/common/wildcard_match.h"

namespace fscanner {

namespace {

bool sameFolded(wchar_t pattern, wchar_t text) {
    return wildcard::sameCharacter<wildcard::LowerFold>(pattern, text);
}

template <typename Same>
bool equalRun(std::wstring_view piece, const wchar_t* text, Same same) {
    for (std::size_t i = 0; i < piece.size(); ++i) {
        if (piece[i] != L'?' && !same(piece[i], text[i])) return false;
    }
    return true;
}

bool sameExact(wchar_t pattern, wchar_t text) {
    return pattern == text;
}

}  // namespace

CompiledPattern::CompiledPattern(std::wstring_view pattern, bool caseSensitive)
    : text_(pattern), caseSensitive_(caseSensitive) {
    split();
    kind_ = classify();
}

void CompiledPattern::split() {
    std::size_t start = 0;
    for (bool last = false; !last;) {
        std::size_t end = text_.find(L'*', start);
        last = end == text_.npos;
        if (last) end = text_.size();
        const std::wstring_view run = std::wstring_view(text_).substr(start, end - start);
        // A run of "*" is one: no empty piece in the middle.
        if (start == 0 || last || !run.empty())
            pieces_.push_back({start, run.size(), run.find(L'?') == run.npos});
        start = end + 1;
    }
}

CompiledPattern::Kind CompiledPattern::classify() const {
    for (const Piece& piece : pieces_) {
        if (!piece.plain) return Kind::general;
    }
    const bool head = pieces_.front().length != 0;
    const bool tail = pieces_.back().length != 0;
    if (pieces_.size() == 1) return Kind::exact;
    if (pieces_.size() == 2 && !head) return tail ? Kind::suffix : Kind::all;
    if (pieces_.size() == 2) return tail ? Kind::general : Kind::prefix;
    return pieces_.size() == 3 && !head && !tail ? Kind::contains : Kind::general;
}

std::wstring_view CompiledPattern::literal() const {
    switch (kind_) {
        case Kind::exact:
        case Kind::prefix:
            return view(pieces_.front());
        case Kind::suffix:
            return view(pieces_.back());
        case Kind::contains:
            return view(pieces_[1]);
        default:
            return {};
    }
}

std::wstring_view CompiledPattern::view(const Piece& piece) const {
    return std::wstring_view(text_).substr(piece.start, piece.length);
}

/// Whether the piece matches the start of `text`, which is long enough.
bool CompiledPattern::equal(const Piece& piece, std::wstring_view text) const {
    const std::wstring_view run = view(piece);
    if (!caseSensitive_) return equalRun(run, text.data(), sameFolded);
    if (!piece.plain) return equalRun(run, text.data(), sameExact);
    return std::wmemcmp(run.data(), text.data(), run.size()) == 0;
}

/// Finds the piece, leftmost, and removes the text up to its end.
bool CompiledPattern::consume(const Piece& piece, std::wstring_view& text) const {
    if (caseSensitive_ && piece.plain) {
        const std::size_t at = text.find(view(piece));
        if (at == text.npos) return false;
        text.remove_prefix(at + piece.length);
        return true;
    }
    for (; text.size() >= piece.length; text.remove_prefix(1)) {
        if (!equal(piece, text)) continue;
        text.remove_prefix(piece.length);
        return true;
    }
    return false;
}

bool CompiledPattern::matchesStarred(std::wstring_view text) const {
    const Piece& head = pieces_.front();
    const Piece& tail = pieces_.back();
    if (text.size() < head.length + tail.length) return false;
    if (!equal(head, text) || !equal(tail, text.substr(text.size() - tail.length))) return false;
    text = text.substr(head.length, text.size() - head.length - tail.length);
    for (std::size_t i = 1; i + 1 < pieces_.size(); ++i) {
        if (!consume(pieces_[i], text)) return false;
    }
    return true;
}

bool CompiledPattern::matches(std::wstring_view text) const {
    if (pieces_.size() > 1) return matchesStarred(text);
    return text.size() == pieces_.front().length && equal(pieces_.front(), text);
}

}  // namespace fscanner
