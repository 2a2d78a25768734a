#include "fscan/text/escape.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <algorithm>

#include "fscan/text/text.h"

namespace fscan {

namespace {

struct Range {
    wchar_t first;
    wchar_t last;
};

constexpr Range hostile[] = {
    {0x00, 0x1F},      // control characters
    {0x7F, 0x9F},      // delete, and control characters of eight bits
    {0x061C, 0x061C},  // the characters that set the writing direction
    {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}, {0xD800, 0xDFFF},  // undecodable bytes
};

std::wstring escapeSequence(wchar_t c) {
    if (c == L'\n') return L"\\n";
    if (c == L'\t') return L"\\t";
    if (c == L'\r') return L"\\r";
    const auto code = static_cast<unsigned>(c);
    if (code >= 0xDC80 && code <= 0xDCFF) return fmt::format(L"\\x{:02X}", code - 0xDC00);
    if (code < 0x80) return fmt::format(L"\\x{:02X}", code);
    return fmt::format(L"\\u{:04X}", code);
}

}  // namespace

bool isHostile(wchar_t c) {
    return std::any_of(std::begin(hostile), std::end(hostile),
                       [c](Range range) { return c >= range.first && c <= range.last; });
}

std::string escaped(std::string_view text) {
    const auto plain = [](char c) { return c >= 0x20 && c < 0x7F; };
    if (std::all_of(text.begin(), text.end(), plain)) return std::string(text);

    std::wstring shown;
    for (const wchar_t c : toWide(std::string(text))) {
        if (isHostile(c))
            shown += escapeSequence(c);
        else
            shown += c;
    }
    return toBytes(shown);
}

}  // namespace fscan
