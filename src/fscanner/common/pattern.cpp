#include "fscanner/common/pattern.h"

#include "fscanner/common/wildcard_match.h"

namespace fscanner {

namespace {

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

}  // namespace

template <typename Fold>
struct CompiledPattern::WideText {
    std::size_t size() const { return text.size(); }
    std::wstring_view view(Piece piece) const { return {pattern + piece.start, piece.length}; }
    bool equalAt(std::size_t at, Piece piece) const {
        return equalRun<Fold>(view(piece), text.data() + at);
    }
    bool consume(Piece piece) {
        if (text.size() < piece.length) return false;
        const wchar_t first = pattern[piece.start];
        const std::wstring_view rest = view(piece).substr(1);
        const wchar_t* const last = text.data() + (text.size() - piece.length);
        for (const wchar_t* at = text.data(); at <= last; ++at) {
            if (!Fold::same(first, *at) && first != L'?') continue;
            if (!equalRun<Fold>(rest, at + 1)) continue;
            removePrefix(static_cast<std::size_t>(at - text.data()) + piece.length);
            return true;
        }
        return false;
    }
    void removePrefix(std::size_t count) { text.remove_prefix(count); }
    void removeSuffix(std::size_t count) { text.remove_suffix(count); }

    std::wstring_view text;
    const wchar_t* pattern;
};

CompiledPattern::CompiledPattern(std::wstring_view pattern, bool caseSensitive)
    : text_(pattern), caseSensitive_(caseSensitive) {
    split();
    kind_ = classify();
    const bool simple = kind_ != Kind::all && kind_ != Kind::general;
    const Piece& inner = pieces_[pieces_.size() / 2];
    literal_ = simple ? (kind_ == Kind::prefix ? pieces_[0] : inner) : Piece{0, 0};
    prepareBytes();
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

/// The bytes have the pieces at the places where the text has them.
void CompiledPattern::prepareBytes() {
    judgesBytes_ = std::all_of(text_.begin(), text_.end(),
                               [](wchar_t c) { return c > 0 && c < 0x80 && c != L'?'; });
    if (!judgesBytes_) return;
    for (const wchar_t c : text_) {
        const auto byte = static_cast<char>(c);
        const char small = stored_text::small(byte);
        bytes_ += caseSensitive_ ? byte : small;
        if (caseSensitive_) continue;
        if (small == 'i') holdsForSure_ = false;
        // Two letters outside ASCII, the dotted I and the Kelvin sign, fold to ASCII.
        if (small == 'i' || small == 'k') judgesForeign_ = false;
    }
    bytes_.append(stored_text::kBlock, 0);
}

/// The first piece lies at the start, the last at the end, and each one between
/// is taken where it comes first: what a later place leaves, an earlier one does.
template <typename Text>
bool CompiledPattern::matchesPieces(Text text) const {
    const Piece head = pieces_.front();
    const Piece tail = pieces_.back();
    const std::size_t size = text.size();
    if (pieces_.size() == 1) return size == head.length && text.equalAt(0, head);
    if (size < head.length + tail.length) return false;
    if (!text.equalAt(0, head) || !text.equalAt(size - tail.length, tail)) return false;
    text.removePrefix(head.length);
    text.removeSuffix(tail.length);
    for (std::size_t i = 1; i + 1 < pieces_.size(); ++i) {
        if (!text.consume(pieces_[i])) return false;
    }
    return true;
}

template bool CompiledPattern::matchesPieces(ByteText) const;

bool CompiledPattern::matches(std::wstring_view text) const {
    return caseSensitive_ ? matchesKind(WideText<wildcard::ExactFold>{text, text_.data()})
                          : matchesKind(WideText<wildcard::LowerFold>{text, text_.data()});
}

}  // namespace fscanner
