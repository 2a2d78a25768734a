#include "text.h"

#include <new>

#include "fscanner/fs/fs_text.h"

namespace fscan {

std::wstring toWide(const std::string& bytes) {
    std::wstring text;
    if (!fscanner::fsToWide(bytes.c_str(), text)) throw std::bad_alloc();
    return text;
}

std::string toBytes(std::wstring_view text) {
    std::string bytes;
    if (!fscanner::fsToMultibyte(std::wstring(text).c_str(), bytes)) throw std::bad_alloc();
    return bytes;
}

bool liesIn(std::wstring_view path, std::wstring_view directory) {
    if (!path.starts_with(directory)) return false;
    return path.size() == directory.size() || directory == L"/" || path[directory.size()] == L'/';
}

std::wstring_view withoutFinalSlash(std::wstring_view path) {
    if (path.size() > 1 && path.ends_with(L'/')) path.remove_suffix(1);
    return path;
}

}  // namespace fscan
