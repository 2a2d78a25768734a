#pragma once

namespace fscanner {

/// The texts that the value classes of the public face own through a plain
/// pointer, so that their layout does not depend on the library's string type.

/// A copy of `text` for `freeText`; null for null. Throws when memory runs out.
wchar_t* copyText(const wchar_t* text);
void freeText(wchar_t* text) noexcept;
/// Both null, or both the same characters.
bool sameText(const wchar_t* a, const wchar_t* b) noexcept;

}  // namespace fscanner
