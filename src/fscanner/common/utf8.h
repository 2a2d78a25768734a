#pragma once

#include <bit>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace fscanner {

/// Conversions between wide text (UTF-32), the locale's multibyte text and the
/// UTF-8 of stored records.
///
/// A file name is bytes, and must come back as the same bytes whatever the
/// locale. What the locale decodes becomes its character; a byte 0x80 to 0xFF
/// that it cannot decode travels as U+DC80 to U+DCFF and turns back into that
/// byte. A character that the locale cannot encode is written as UTF-8.

/// Whether a byte below 0x80 is that character in every name of the current locale. In
/// GBK, Big5 or Shift JIS it may be the second half of another one.
bool asciiBytesAreCharacters();

/// Appends the wide form of `text` to `out`. Plain ASCII costs a copy.
void appendWide(std::wstring& out, std::string_view text);
std::wstring toWide(std::string_view text);
/// Appends the multibyte form of `text` to `out`.
void appendMultibyte(std::string& out, std::wstring_view text);
std::string toMultibyte(std::wstring_view text);

/// A new wide string, released with delete[]; null for null.
wchar_t* myMbsToWcs(const char* s);
/// A new multibyte string of length x MB_CUR_MAX + 2 bytes (more where that is
/// too little), released with delete[]; null for null.
char* myWcsToMbs(const wchar_t* s);

/// A buffer that grows and never shrinks.
template <typename T>
class DynamicBuffer {
public:
    /// Makes room for `count` elements. Old content is lost when it grows.
    /// False, and the old buffer is kept, when memory runs out.
    bool reserve(unsigned count) {
        if (count <= size_) return true;
        std::unique_ptr<T[]> grown(new (std::nothrow) T[count]);
        if (!grown) return false;
        data_ = std::move(grown);
        size_ = count;
        return true;
    }
    T* data() const { return data_.get(); }
    unsigned size() const { return size_; }

private:
    std::unique_ptr<T[]> data_;
    unsigned size_ = 0;
};

/// Encodes `s` as UTF-8 (up to six bytes a character) into `out` of `size`
/// bytes, terminator included. A character that does not fit is skipped and
/// the next is tried. Returns the number of characters written.
unsigned stringToUTF8(unsigned char* out, unsigned size, const wchar_t* s);
/// The same into a buffer grown to length x 6 + 1 bytes first; 0 when it cannot.
unsigned stringToUTF8(DynamicBuffer<unsigned char>& buffer, const wchar_t* s);
/// Decodes at most `size` - 1 characters of the terminated `s`. Continuation
/// bytes are not validated, but a sequence cut by the terminator ends there.
/// Returns the number of characters.
unsigned utf8ToWideChar(wchar_t* out, unsigned size, const unsigned char* s);

/// The first character of a text as its bytes say it.
struct Utf8Character {
    std::uint32_t value;
    unsigned length;  ///< bytes taken, at least 1: as many as the first byte announces
    bool shortest;    ///< a whole sequence of up to six bytes, and no shorter one has the value
};

/// Decodes the first character of `text`, which must not be empty. Every reader of UTF-8
/// goes through here: each tests what it has to (`shortest`, and the range of the value). A
/// sequence that the end of the text cuts ends there.
inline Utf8Character readUtf8(std::string_view text) {
    static constexpr std::uint32_t lowest[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) return {lead, 1, true};
    const auto announced = static_cast<unsigned>(std::countl_one(lead));
    std::uint32_t value = lead & (0x7Fu >> announced);
    bool whole = announced >= 2 && announced <= 6 && announced <= text.size();
    unsigned length = 1;
    for (; length < announced && length < text.size(); ++length) {
        const auto byte = static_cast<unsigned char>(text[length]);
        whole = whole && (byte & 0xC0) == 0x80;
        value = value << 6 | (byte & 0x3Fu);
    }
    return {value, length, whole && value >= lowest[announced]};
}

/// Whether all of `text`, wide or narrow, is ASCII. The loop has no early exit, so that the
/// compiler can vectorise it.
template <typename Text>
bool isAscii(const Text& text) {
    std::uint32_t all = 0;
    for (const auto c : text) all |= static_cast<std::uint32_t>(c);
    return all < 0x80;
}

/// Bytes that the six-byte form of UTF-8 needs for one character.
unsigned utf8Length(wchar_t c);

/// A word for what the conversion and the case of characters depend on: processes
/// with one word convert and fold alike.
std::string localeWord();

}  // namespace fscanner
