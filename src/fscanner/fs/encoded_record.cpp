#include "fscanner/fs/encoded_record.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <cwctype>

namespace fscanner {

namespace {

constexpr std::size_t kNumberSize = 4;

bool isPlainWord(const char* at) {
    constexpr std::uint64_t ones = 0x0101010101010101u;
    constexpr std::uint64_t tops = 0x8080808080808080u;
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return (((word - ones) | word) & tops) == 0;  // no byte is 0 or above 0x7F
}

bool isWellFormedText(std::string_view rest) {
    while (!rest.empty()) {
        unsigned length = 1;
        if (rest.size() >= sizeof(std::uint64_t) && isPlainWord(rest.data())) {
            length = sizeof(std::uint64_t);
        } else if (rest[0] == 0) {
            return false;
        } else if (static_cast<signed char>(rest[0]) < 0) {
            const Utf8Character character = readUtf8(rest);
            if (!character.shortest) return false;
            length = character.length;
        }
        rest.remove_prefix(length);
    }
    return true;
}

// Removes one text from the front of `rest`. False if it is cut off or not well formed.
bool takeText(std::span<const unsigned char>& rest) {
    if (rest.size() < kNumberSize) return false;
    const unsigned count = encodedNumber(rest.data());
    rest = rest.subspan(kNumberSize);
    if (count == 0 || count - 1 > rest.size()) return false;
    if (!isWellFormedText({reinterpret_cast<const char*>(rest.data()), count - 1})) return false;
    rest = rest.subspan(count - 1);
    return true;
}

bool takeNumbers(std::span<const unsigned char>& rest) {
    if (rest.size() < kNumberSize) return false;
    const std::size_t taken = kNumberSize * (1 + encodedFieldCount(encodedNumber(rest.data())));
    if (taken > rest.size()) return false;
    rest = rest.subspan(taken);
    return true;
}

// The path name made of a directory and a name, as up to three pieces. Joining them would copy.
class Pieces {
public:
    explicit Pieces(std::string_view only) : pieces_{only, {}, {}} { settle(); }
    explicit Pieces(const EncodedRecord& r)
        : pieces_{r.path, needsSeparator(r.path) ? "/" : "", r.name} {
        settle();
    }
    bool empty() const { return at_ == pieces_.size(); }
    std::string_view front() const { return pieces_[at_]; }
    void drop(std::size_t count) {
        pieces_[at_].remove_prefix(count);
        settle();
    }

private:
    void settle() {
        while (at_ < pieces_.size() && pieces_[at_].empty()) ++at_;
    }
    std::array<std::string_view, 3> pieces_;
    std::size_t at_ = 0;
};

int comparePieces(Pieces a, Pieces b) {
    while (!a.empty() && !b.empty()) {
        const std::size_t common = std::min(a.front().size(), b.front().size());
        const int order = std::memcmp(a.front().data(), b.front().data(), common);
        if (order != 0) return order;
        a.drop(common);
        b.drop(common);
    }
    return threeWay(a.empty() ? 0 : 1, b.empty() ? 0 : 1);
}

wint_t takeFolded(Pieces& from) {
    const Utf8Character next = readUtf8(from.front());
    from.drop(next.length);
    return std::towlower(static_cast<wint_t>(next.value));
}

int compareFolded(Pieces a, Pieces b) {
    while (!a.empty() && !b.empty()) {
        const wint_t x = takeFolded(a);
        const wint_t y = takeFolded(b);
        if (x != y) return x < y ? -1 : 1;
    }
    return threeWay(a.empty() ? 0 : 1, b.empty() ? 0 : 1);
}

}  // namespace

bool isWellFormed(std::span<const unsigned char> bytes) {
    while (!bytes.empty()) {
        const bool texts = takeText(bytes) && takeText(bytes);  // NOLINT(misc-redundant-expression)
        if (!texts || !takeNumbers(bytes)) return false;
    }
    return true;
}

int comparePathNames(const EncodedRecord& a, const EncodedRecord& b) {
    if (a.path == b.path) return compareBytes(a.name, b.name);
    return comparePieces(Pieces(a), Pieces(b));
}

int compareFoldedPaths(const EncodedRecord& a, const EncodedRecord& b) {
    return compareFolded(Pieces(a.path), Pieces(b.path));
}

int compareFoldedNames(const EncodedRecord& a, const EncodedRecord& b) {
    return compareFolded(Pieces(a.name), Pieces(b.name));
}

int compareFoldedPathNames(const EncodedRecord& a, const EncodedRecord& b) {
    return compareFolded(Pieces(a), Pieces(b));
}

}  // namespace fscanner
