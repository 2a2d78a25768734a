#include "fscan/text/text.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <filesystem>
#include <new>
#include <string_view>

#include "fscanner/fs/fs_text.h"

namespace fscan {

void useUsersLocale() {
    // Only the categories that are used: each other one would read two files at the start.
    const bool known = std::setlocale(LC_CTYPE, "") != nullptr;
    std::setlocale(LC_MESSAGES, "");
    const char* characters = std::setlocale(LC_CTYPE, nullptr);
    const std::string_view name = characters != nullptr ? characters : "C";
    if (!known || name == "C" || name == "POSIX") std::setlocale(LC_CTYPE, "C.UTF-8");
}

namespace {

/// Appends the ASCII characters at the start of the text; returns how many they were. Works in
/// blocks that the compiler can keep in registers.
std::size_t appendAscii(std::string& bytes, std::wstring_view text) {
    constexpr std::size_t block = 16;
    char narrow[block] = {};
    std::size_t done = 0;
    for (; done + block <= text.size(); done += block) {
        std::uint32_t all = 0;
        for (std::size_t i = 0; i < block; ++i) {
            const auto c = static_cast<std::uint32_t>(text[done + i]);
            all |= c;
            narrow[i] = static_cast<char>(c);
        }
        if (all >= 0x80) break;
        bytes.append(narrow, block);
    }
    const std::wstring_view rest = text.substr(done, block);
    std::size_t count = 0;
    for (; count < rest.size() && static_cast<std::uint32_t>(rest[count]) < 0x80; ++count)
        narrow[count] = static_cast<char>(rest[count]);
    bytes.append(narrow, count);
    return done + count;
}

}  // namespace

std::wstring toWide(const std::string& bytes) {
    std::wstring text;
    if (!fscanner::fsToWide(bytes.c_str(), text)) throw std::bad_alloc();
    return text;
}

std::string toBytes(std::wstring_view text) {
    std::string bytes;
    appendBytes(bytes, text);
    return bytes;
}

void appendBytes(std::string& bytes, std::wstring_view text) {
    text.remove_prefix(appendAscii(bytes, text));
    if (text.empty()) return;
    std::string rest;
    if (!fscanner::fsToMultibyte(std::wstring(text).c_str(), rest)) throw std::bad_alloc();
    bytes += rest;
}

namespace {

struct Range {
    wchar_t first;
    wchar_t last;
};

constexpr Range kHostile[] = {
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
    return std::any_of(std::begin(kHostile), std::end(kHostile),
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

// ---- Paths ------------------------------------------------------------------

std::string csvText(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == text.npos) return std::string(text);
    std::string result = "\"";
    for (const char c : text) result += c == '"' ? "\"\"" : std::string(1, c);
    return result + '"';
}

std::string absolutePath(std::string_view path) {
    if (path.starts_with('/')) return std::string(path);
    std::error_code error;
    static const std::filesystem::path here = std::filesystem::current_path(error);
    while (path.starts_with("./")) path.remove_prefix(2);
    return (here / path).native();
}

bool liesIn(std::wstring_view path, std::wstring_view directory) {
    if (!path.starts_with(directory)) return false;
    return path.size() == directory.size() || directory == L"/" || path[directory.size()] == L'/';
}

std::wstring joinedPath(std::wstring_view directory, std::wstring_view name) {
    std::wstring path(directory);
    if (!path.ends_with(L'/')) path += L'/';
    return path.append(name);
}

std::wstring_view withoutFinalSlash(std::wstring_view path) {
    if (path.size() > 1 && path.ends_with(L'/')) path.remove_suffix(1);
    return path;
}

bool matchesAnywhere(std::string_view glob) {
    const std::string_view first = glob.substr(0, glob.find('/'));
    return !glob.starts_with('/') && first != "." && first != "..";
}

std::optional<std::string> wholePathGlob(std::string_view glob) {
    if (glob.starts_with('/') || glob.starts_with('*')) return std::string(glob);
    if (matchesAnywhere(glob)) return "*/" + std::string(glob);
    std::error_code error;
    const std::filesystem::path here = std::filesystem::current_path(error);
    if (error) return std::nullopt;
    return (here / glob).native();
}

}  // namespace fscan
