#pragma once

#include <cstdlib>
#include <cwchar>
#include <memory>
#include <string_view>

namespace fscanner {

/// Releases what malloc gave.
struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

/// Owns a wide string of the interfaces that promise `free`.
using HeapText = std::unique_ptr<wchar_t, FreeDeleter>;

/// A terminated copy in malloc's memory, for the interfaces whose callers
/// release with `free`. Null when memory runs out.
inline wchar_t* mallocCopy(std::wstring_view text) {
    auto* copy = static_cast<wchar_t*>(std::malloc((text.size() + 1) * sizeof(wchar_t)));
    if (copy == nullptr) return nullptr;
    std::wmemcpy(copy, text.data(), text.size());
    copy[text.size()] = 0;
    return copy;
}

}  // namespace fscanner
