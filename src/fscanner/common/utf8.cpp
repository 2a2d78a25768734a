#include "fscanner/common/utf8.h"

#include <langinfo.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>

namespace fscanner {

namespace {

constexpr wchar_t kEscapeBase = 0xDC00;  // an undecodable byte b travels as 0xDC00 + b

bool isEscape(wchar_t c) {
    return c >= 0xDC80 && c <= 0xDCFF;
}

enum class Codeset { ascii, utf8, other };

/// The encoding of the current locale, which may have changed since the last call.
Codeset currentCodeset() {
    const char* name = nl_langinfo(CODESET);
    if (std::strcmp(name, "UTF-8") == 0) return Codeset::utf8;
    if (std::strcmp(name, "ANSI_X3.4-1968") == 0) return Codeset::ascii;
    return Codeset::other;
}

/// One character decoded from the start of a text; `length` 0 means undecodable.
struct Decoded {
    wchar_t character = 0;
    unsigned length = 0;
};

/// Strict: no overlong form, no surrogate, nothing above U+10FFFF. The
/// surrogates are the escapes' own range, and libc's decoder would let the rest
/// through in some locales.
Decoded decodeUtf8(std::string_view text) {
    const auto [value, length, shortest] = readUtf8(text);
    if (!shortest || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000)) return {};
    return {static_cast<wchar_t>(value), length};
}

/// By libc. A character that does not come back as the same bytes on its own
/// counts as undecodable, so that names keep their bytes in every encoding.
Decoded decodeByLocale(std::string_view text) {
    wchar_t character;
    std::mbstate_t state{};
    const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
    if (length == 0 || length > text.size() || std::mbsinit(&state) == 0) return {};
    if (isEscape(character)) return {};
    char bytes[MB_LEN_MAX];
    if (std::wcrtomb(bytes, character, &state) != length) return {};
    if (std::memcmp(bytes, text.data(), length) != 0 || std::mbsinit(&state) == 0) return {};
    return {character, static_cast<unsigned>(length)};
}

Decoded decodeCharacter(std::string_view text, Codeset codeset) {
    if (codeset == Codeset::utf8) return decodeUtf8(text);
    return codeset == Codeset::other ? decodeByLocale(text) : Decoded{};
}

/// Widens the ASCII at the start of `text` and returns its length.
std::size_t widenAscii(std::string_view text, wchar_t* out) {
    std::size_t done = 0;
    for (std::uint64_t word; done + sizeof word <= text.size(); done += sizeof word) {
        std::memcpy(&word, text.data() + done, sizeof word);
        if ((word & 0x8080808080808080u) != 0) break;
        for (std::size_t i = done; i < done + sizeof word; ++i) out[i] = text[i];
    }
    for (; done < text.size() && static_cast<signed char>(text[done]) >= 0; ++done)
        out[done] = text[done];
    return done;
}

/// Decodes into `out`, which holds a character for each byte; returns its end.
wchar_t* decode(std::string_view text, wchar_t* out) {
    const std::size_t plain = widenAscii(text, out);
    out += plain;
    text.remove_prefix(plain);
    if (text.empty()) return out;
    const Codeset codeset = currentCodeset();
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text[0]);
        const Decoded next = byte < 0x80 ? Decoded{byte, 1} : decodeCharacter(text, codeset);
        *out++ = next.length != 0 ? next.character : kEscapeBase + byte;
        text.remove_prefix(next.length != 0 ? next.length : 1);
    }
    return out;
}

constexpr unsigned kMaxUtf8Length = 6;
constexpr wchar_t kReplacement = 0xFFFD;

/// A value above 0x7FFFFFFF has no UTF-8 form; the replacement stands for it.
std::uint32_t encodable(wchar_t c) {
    const auto value = static_cast<std::uint32_t>(c);
    return value <= 0x7FFFFFFF ? value : static_cast<std::uint32_t>(kReplacement);
}

/// Writes the `length` bytes (`utf8Length`) of one character.
void encodeUtf8(wchar_t c, unsigned length, char* out) {
    std::uint32_t value = encodable(c);
    if (length == 1) {
        *out = static_cast<char>(value);
        return;
    }
    for (unsigned i = length - 1; i > 0; --i, value >>= 6)
        out[i] = static_cast<char>(0x80 | (value & 0x3F));
    out[0] = static_cast<char>((0xFF00u >> length & 0xFF) | value);
}

/// Appends one character above ASCII.
void encodeCharacter(std::string& out, wchar_t c, Codeset codeset) {
    char bytes[MB_LEN_MAX];
    if (isEscape(c)) {
        out += static_cast<char>(c & 0xFF);
        return;
    }
    if (codeset == Codeset::other) {
        std::mbstate_t state{};
        const std::size_t length = std::wcrtomb(bytes, c, &state);
        if (length != static_cast<std::size_t>(-1) && std::mbsinit(&state) != 0) {
            out.append(bytes, length);
            return;
        }
    }
    const unsigned length = utf8Length(c);
    encodeUtf8(c, length, bytes);
    out.append(bytes, length);
}

/// Narrows the ASCII at the start of `text` and returns its length.
std::size_t narrowAscii(std::string& out, std::wstring_view text) {
    constexpr std::size_t block = 16;  // which the compiler can keep in registers
    const std::size_t start = out.size();
    out.resize(start + text.size());
    char* to = out.data() + start;
    std::size_t done = 0;
    for (; done + block <= text.size(); done += block) {
        std::uint32_t all = 0;
        for (std::size_t i = done; i < done + block; ++i) {
            all |= static_cast<std::uint32_t>(text[i]);
            to[i] = static_cast<char>(text[i]);
        }
        if (all >= 0x80) break;
    }
    for (; done < text.size() && static_cast<std::uint32_t>(text[done]) < 0x80; ++done)
        to[done] = static_cast<char>(text[done]);
    out.resize(start + done);
    return done;
}

}  // namespace

bool asciiBytesAreCharacters() {
    return currentCodeset() != Codeset::other;
}

void appendWide(std::wstring& out, std::string_view text) {
    const std::size_t start = out.size();
    out.resize(start + text.size());
    const wchar_t* end = decode(text, out.data() + start);
    out.resize(static_cast<std::size_t>(end - out.data()));
}

std::wstring toWide(std::string_view text) {
    std::wstring out;
    appendWide(out, text);
    return out;
}

void appendMultibyte(std::string& out, std::wstring_view text) {
    text.remove_prefix(narrowAscii(out, text));
    if (text.empty()) return;
    const Codeset codeset = currentCodeset();
    while (!text.empty()) {
        encodeCharacter(out, text.front(), codeset);
        text.remove_prefix(1);
        text.remove_prefix(narrowAscii(out, text));
    }
}

std::string toMultibyte(std::wstring_view text) {
    std::string out;
    appendMultibyte(out, text);
    return out;
}

wchar_t* myMbsToWcs(const char* s) {
    if (s == nullptr) return nullptr;
    const std::string_view text(s);
    auto* wide = new (std::nothrow) wchar_t[text.size() + 1];
    if (wide != nullptr) *decode(text, wide) = 0;
    return wide;
}

char* myWcsToMbs(const wchar_t* s) {
    if (s == nullptr) return nullptr;
    try {
        const std::wstring_view wide(s);
        const std::string text = toMultibyte(wide);
        const std::size_t size = std::max(wide.size() * MB_CUR_MAX + 2, text.size() + 1);
        auto* bytes = new char[size];
        std::memcpy(bytes, text.c_str(), text.size() + 1);
        return bytes;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

unsigned utf8Length(wchar_t c) {
    const std::uint32_t value = encodable(c);
    if (value < 0x80) return 1;
    if (value < 0x800) return 2;
    if (value < 0x10000) return 3;
    if (value < 0x200000) return 4;
    return value < 0x4000000 ? 5 : 6;
}

unsigned stringToUTF8(unsigned char* out, unsigned size, const wchar_t* s) {
    if (size == 0) return 0;
    unsigned written = 0;
    unsigned room = size - 1;
    for (; *s != 0; ++s) {
        const unsigned length = utf8Length(*s);
        if (length > room) continue;  // a later, shorter character may still fit
        encodeUtf8(*s, length, reinterpret_cast<char*>(out));
        out += length;
        room -= length;
        ++written;
    }
    *out = 0;
    return written;
}

unsigned stringToUTF8(DynamicBuffer<unsigned char>& buffer, const wchar_t* s) {
    const std::size_t needed = std::wcslen(s) * kMaxUtf8Length + 1;
    if (needed > UINT_MAX || !buffer.reserve(static_cast<unsigned>(needed))) return 0;
    return stringToUTF8(buffer.data(), buffer.size(), s);
}

unsigned utf8ToWideChar(wchar_t* out, unsigned size, const unsigned char* s) {
    if (size == 0) return 0;
    std::string_view text(reinterpret_cast<const char*>(s));
    const std::size_t plain = widenAscii(text.substr(0, size - 1), out);
    text.remove_prefix(plain);
    auto count = static_cast<unsigned>(plain);
    while (!text.empty() && count < size - 1) {
        const Utf8Character next = readUtf8(text);
        out[count++] = static_cast<wchar_t>(next.value);
        text.remove_prefix(next.length);
    }
    out[count] = 0;
    return count;
}

// Turkish and its neighbours have another capital for "i".
std::string localeWord() {
    std::string word = nl_langinfo(CODESET);
    for (char& c : word)
        if (c == '/' || c == ':') c = '_';
    return std::towupper(L'i') == L'I' ? word : word + "-dotted";
}

}  // namespace fscanner
