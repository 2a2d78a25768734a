#include "fscanner/common/strings.h"

#include <cwchar>
#include <functional>
#include <new>
#include <string>

namespace fscanner {

bool wcs_stringCat(const wchar_t* prefix, wchar_t* s, unsigned room) {
    const std::size_t added = std::wcslen(prefix);
    const std::size_t length = std::wcslen(s);
    // The 4 is a reserve that callers count on.
    if (added + length + 4 > room) return false;
    const std::less<> before;
    // A prefix inside `s` moves with it.
    const bool inside = !before(prefix, s) && !before(s + length, prefix);
    std::wmemmove(s + added, s, length + 1);
    std::wmemmove(s, inside ? prefix + added : prefix, added);
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

// ---- Numbers ----------------------------------------------------------------

int compressInt(unsigned long long value, char* buf, int size) {
    int at = size - 1;
    buf[at] = static_cast<char>((value & 0x7F) << 1);
    while ((value >>= 7) != 0) buf[--at] = static_cast<char>((value & 0x7F) << 1 | 1);
    return at;
}

unsigned long long decompressInt(const char* bytes) {
    unsigned long long value = 0;
    unsigned byte;
    do {
        byte = static_cast<unsigned char>(*bytes++);
        value = value << 7 | byte >> 1;
    } while ((byte & 1) != 0);
    return value;
}

bool checkBit(unsigned char index, const char* bits) {
    return (static_cast<unsigned char>(bits[index >> 3]) & (0x80u >> (index & 7))) != 0;
}

void setBit(unsigned char index, char* bits) {
    char& byte = bits[index >> 3];
    byte = static_cast<char>(static_cast<unsigned char>(byte) | (0x80u >> (index & 7)));
}

int hash(const wchar_t* s, int n) {
    unsigned h = 0;
    do {
        h = hashStep(h, *s);
    } while (*s++ != 0);
    return hash(h, n);
}

int hash(unsigned v, int n) {
    const int remainder = static_cast<int>(v) % n;
    return remainder < 0 ? remainder + n : remainder;
}

namespace {

template <typename T>
wchar_t* writeDecimal(T v, wchar_t* out) {
    int digits = 1;
    for (T rest = v / 10; rest != 0; rest /= 10) ++digits;
    out[digits] = 0;
    for (int at = digits - 1; at >= 0; --at, v /= 10) out[at] = static_cast<wchar_t>(L'0' + v % 10);
    return out;
}

}  // namespace

wchar_t* wcs_itoa(unsigned v, wchar_t* out) {
    static wchar_t own[11];
    return writeDecimal(v, out != nullptr ? out : own);
}

wchar_t* wcs_itoa64(unsigned long long v, wchar_t* out) {
    static wchar_t own[21];
    return writeDecimal(v, out != nullptr ? out : own);
}

}  // namespace fscanner
