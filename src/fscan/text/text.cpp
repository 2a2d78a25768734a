#include "fscan/text/text.h"

#include <cstdint>
#include <new>

#include "fscanner/fs/fs_text.h"

namespace fscan {

namespace {

/// Appends the ASCII at the start of the text, in blocks that the compiler can keep in
/// registers; returns how much that was.
std::size_t appendAscii(std::string& bytes, std::wstring_view text) {
    constexpr std::size_t block = 16;
    char narrow[block];
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

}  // namespace fscan
