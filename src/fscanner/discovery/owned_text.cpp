#include "fscanner/discovery/owned_text.h"

#include <cwchar>

namespace fscanner {

wchar_t* copyText(const wchar_t* text) {
    if (!text) return nullptr;
    const std::size_t size = std::wcslen(text) + 1;
    return std::wmemcpy(new wchar_t[size], text, size);
}

void freeText(wchar_t* text) noexcept {
    delete[] text;
}

bool sameText(const wchar_t* a, const wchar_t* b) noexcept {
    if (!a || !b) return a == b;
    return std::wcscmp(a, b) == 0;
}

}  // namespace fscanner
