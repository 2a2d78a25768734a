#include "fscanner/common/common.h"

#include <cstdlib>
#include <cwchar>
#include <functional>
#include <new>

#include "fscanner/common/strings.h"

namespace fscanner {

// ---- Texts ------------------------------------------------------------------

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
    // std::less, because the built-in `<` is unspecified for pointers into different arrays.
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
        return std::wmemmove(*dst, src, length + 1);  // src may point into *dst
    }
    std::free(*dst);
    *dst = mallocCopy({src, length});
    return *dst;
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

/// Collects one token in the caller's buffer of `size` characters, which includes the
/// terminator. A token that is too long is counted but not stored.
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

/// Collects the text up to the next operator or the end, and returns that position.
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

// ---- Boolean expressions ----------------------------------------------------

namespace {

// Nesting deeper than this is an error: it would cost the stack, not a match.
constexpr int kMaxDepth = 1000;

}  // namespace

bool Evaluator::execute(const wchar_t* text) {
    text_ = text;
    position_ = 0;
    depth_ = 0;
    current_ = 0;
    error_ = text == nullptr;
    if (error_) return false;
    advance();
    return exp();
}

// Reads the next character; at the terminator it stays there.
void Evaluator::advance() {
    current_ = text_[position_];
    if (current_ != 0) ++position_;
}

bool Evaluator::exp() {
    const bool value = orExp();
    if (current_ != 0) error_ = true;
    return !error_ && value;
}

bool Evaluator::orExp() {
    bool value = andExp();
    while (!error_ && current_ == L'|') {
        advance();
        const bool right = andExp();
        value = value || right;
    }
    return !error_ && value;
}

bool Evaluator::andExp() {
    bool value = simpExp();
    while (!error_ && current_ == L'&') {
        advance();
        const bool right = simpExp();
        value = value && right;
    }
    return !error_ && value;
}

bool Evaluator::simpExp() {
    const wchar_t c = current_;
    if (error_) return false;
    advance();
    if (c == L'0' || c == L'1') return c == L'1';
    error_ = (c != L'(' && c != L'!') || depth_ == kMaxDepth;
    if (error_) return false;

    ++depth_;
    bool value = orExp();
    --depth_;
    if (c == L'!') return !error_ && !value;
    if (current_ != L')') error_ = true;
    advance();
    return !error_ && value;
}

}  // namespace fscanner
