#include "fscanner/common/strings.h"

#include <cstdlib>
#include <cwchar>
#include <functional>
#include <new>
#include <string>

#include "fscanner/common/heap_string.h"

namespace fscanner {

wchar_t* ltrim(wchar_t* s) {
    const wchar_t* start = s;
    while (*start == L' ') ++start;
    if (start != s) std::wmemmove(s, start, std::wcslen(start) + 1);
    return s;
}

wchar_t* rtrim(wchar_t* s) {
    std::size_t length = std::wcslen(s);
    while (length > 0 && s[length - 1] == L' ') --length;
    s[length] = 0;
    return s;
}

void replaceChar(wchar_t* s, wchar_t from, wchar_t to) {
    if (s == nullptr) return;
    for (; *s != 0; ++s) {
        if (*s == from) *s = to;
    }
}

wchar_t* wcsbtw(wchar_t* first, wchar_t* last, wchar_t c) {
    for (wchar_t* p = first; !std::less<>()(last, p); ++p) {
        if (*p == c) return p;
    }
    return nullptr;
}

const wchar_t* my_wcswcs(const wchar_t* haystack, const wchar_t* needle) {
    return std::wcsstr(haystack, needle);
}

wchar_t* __wcscpy(wchar_t** dst, const wchar_t* src) {
    if (src == nullptr) return *dst;
    const std::size_t length = std::wcslen(src);
    if (*dst != nullptr && std::wcslen(*dst) >= length) {
        return std::wmemmove(*dst, src, length + 1);  // src may be a tail of *dst
    }
    std::free(*dst);
    *dst = mallocCopy({src, length});
    return *dst;
}

bool wcs_stringCat(const wchar_t* prefix, wchar_t* s, unsigned room) {
    const std::size_t added = std::wcslen(prefix);
    const std::size_t length = std::wcslen(s);
    // The 4 is a reserve that callers count on.
    if (added + length + 4 > room) return false;
    const std::less<> before;
    const bool inside = !before(prefix, s) && !before(s + length, prefix);
    std::wmemmove(s + added, s, length + 1);
    std::wmemmove(s, inside ? prefix + added : prefix, added);
    return true;
}

wchar_t* insertAndReplaceString(const wchar_t* s, const wchar_t* find, const wchar_t* insert) {
    if (s == nullptr || find == nullptr || insert == nullptr) return nullptr;
    try {
        std::wstring result;
        const wchar_t* hit = *find != 0 ? std::wcsstr(s, find) : nullptr;
        for (; hit != nullptr; hit = std::wcsstr(s, find)) {
            result.append(s, hit).append(insert);
            s = hit + 1;  // the rest of the occurrence stays in the result
        }
        return mallocCopy(result.append(s));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace {

bool isOperator(wchar_t c) {
    return c != 0 && std::wcschr(L"()&|!", c) != nullptr;
}

/// The text of one token, in the caller's room (terminator included).
class TokenBuffer {
public:
    TokenBuffer(wchar_t* out, unsigned size) : out_(out), size_(size) {}
    bool empty() const { return used_ == 0; }
    void add(wchar_t c) {
        if (used_ < size_) out_[used_] = c;
        ++used_;
    }
    /// Terminates the token; false when it did not fit.
    bool finish() {
        if (used_ >= size_) return false;
        out_[used_] = 0;
        return true;
    }

private:
    wchar_t* out_;
    std::size_t size_;
    std::size_t used_ = 0;
};

/// Collects up to the next operator or the end, and returns where it stands.
const wchar_t* collectRun(const wchar_t* at, TokenBuffer& token) {
    bool quoted = false;
    for (; *at != 0 && (quoted || !isOperator(*at)); ++at) {
        if (*at == L'"') {
            quoted = !quoted;
        } else if (quoted || *at != L' ') {
            token.add(*at);
        }
    }
    return at;
}

}  // namespace

bool tokenize(const wchar_t* s, wchar_t* out, unsigned size) {
    static const wchar_t* next = L"";
    if (s != nullptr) next = s;
    TokenBuffer token(out, size);
    const wchar_t* at = collectRun(next, token);
    if (token.empty() && *at != 0) {
        if (size <= 4) return false;
        token.add(*at++);
    }
    if (!token.finish()) return false;
    next = at;
    return true;
}

// ---- The list ---------------------------------------------------------------

template <typename T>
bool StringList<T>::insert(const T* s) {
    if (s == nullptr) return false;
    try {
        items_.emplace_back(s);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

template <typename T>
int StringList<T>::find(const T* s) const {
    for (std::size_t i = 0; i < items_.size(); ++i) {
        if (items_[i] == s) return static_cast<int>(i);
    }
    return -1;
}

template <typename T>
const T* StringList<T>::at(int i) const {
    return i >= 0 && i < size() ? items_[static_cast<std::size_t>(i)].c_str() : nullptr;
}

template class StringList<char>;
template class StringList<wchar_t>;

}  // namespace fscanner
