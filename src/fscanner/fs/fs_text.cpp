#include "fscanner/fs/fs_text.h"

#include <new>

#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"

namespace fscanner {

bool fsToWide(const char* text, std::wstring& out) try {
    if (text == nullptr) return false;
    out.clear();
    appendWide(out, text);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

bool fsToMultibyte(const wchar_t* text, std::string& out) try {
    if (text == nullptr) return false;
    out.clear();
    appendMultibyte(out, text);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

bool fsNameMatches(const wchar_t* glob, const wchar_t* name, bool caseSensitive) {
    return glob != nullptr && name != nullptr && wildvccmp(glob, name, caseSensitive) != 0;
}

bool fsPathMatches(const wchar_t* pattern, const wchar_t* path, bool recursive,
                   bool caseSensitive) {
    return pattern != nullptr && path != nullptr &&
           wildvcpathcmp(pattern, path, recursive, caseSensitive) != 0;
}

}  // namespace fscanner
