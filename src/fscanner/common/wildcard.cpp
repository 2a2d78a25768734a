#include "fscanner/common/wildcard.h"

#include <cwchar>
#include <cwctype>

#include "fscanner/common/wildcard_match.h"

namespace fscanner {

using wildcard::ExactFold;
using wildcard::LowerFold;

int wcsvccmp(const wchar_t* a, const wchar_t* b, bool caseSensitive) {
    return caseSensitive ? std::wcscmp(a, b) : wcscasecmp(a, b);
}

int wcsnvccmp(const wchar_t* a, const wchar_t* b, unsigned n, bool caseSensitive) {
    return caseSensitive ? std::wcsncmp(a, b, n) : wcsncasecmp(a, b, n);
}

int wildcmp(const wchar_t* pattern, const wchar_t* text, bool partial) {
    return partial ? wildcard::match<ExactFold>(pattern, text, wildcard::PartialRule{})
                   : wildcard::match<ExactFold>(pattern, text, wildcard::NameRule{});
}

int wildcasecmp(const wchar_t* pattern, const wchar_t* text, bool partial) {
    return partial ? wildcard::match<LowerFold>(pattern, text, wildcard::PartialRule{})
                   : wildcard::match<LowerFold>(pattern, text, wildcard::NameRule{});
}

int wildvccmp(const wchar_t* pattern, const wchar_t* text, bool caseSensitive) {
    return caseSensitive ? wildcmp(pattern, text, false) : wildcasecmp(pattern, text, false);
}

int wildpathcmp(const wchar_t* pattern, const wchar_t* path, bool recursive) {
    return wildcard::match<ExactFold>(pattern, path, wildcard::PathRule{recursive});
}

int wildcasepathcmp(const wchar_t* pattern, const wchar_t* path, bool recursive) {
    return wildcard::match<LowerFold>(pattern, path, wildcard::PathRule{recursive});
}

int wildvcpathcmp(const wchar_t* pattern, const wchar_t* path, bool recursive, bool caseSensitive) {
    return caseSensitive ? wildpathcmp(pattern, path, recursive)
                         : wildcasepathcmp(pattern, path, recursive);
}

bool checkWildCard(const wchar_t* s) {
    return std::wcspbrk(s, L"*?") != nullptr;
}

bool checkSimpleExpression(unsigned char v, unsigned op, unsigned char r) {
    return holds(v, op, r);
}

bool checkSimpleExpression(unsigned short v, unsigned op, unsigned short r) {
    return holds(v, op, r);
}

bool checkSimpleExpression(unsigned v, unsigned op, unsigned r) {
    return holds(v, op, r);
}

bool checkSimpleExpression(unsigned long long v, unsigned op, unsigned long long r) {
    return holds(v, op, r);
}

bool checkSimpleExpression(const wchar_t* v, unsigned op, const wchar_t* r, bool caseSensitive) {
    if (op == COMPARE_EQUAL) return wildvccmp(r, v, caseSensitive) != 0;
    if (op == COMPARE_NOT_EQUAL) return wildvccmp(r, v, caseSensitive) == 0;
    return holds(wcsvccmp(v, r, caseSensitive), op, 0);
}

void wcsupper(const wchar_t* src, wchar_t* dst) {
    do {
        *dst++ = upperCase(*src);
    } while (*src++ != 0);
}

void wcsupper(wchar_t* s) {
    wcsupper(s, s);
}

}  // namespace fscanner
