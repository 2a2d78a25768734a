#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace fscanner {

/// A terminated wide text that owns its characters: up to 127 in itself, more on
/// the heap. The length is kept, so that a view costs nothing.
class InlineText {
public:
    static constexpr std::size_t INLINE_LENGTH = 127;

    InlineText() { inline_[0] = L'\0'; }
    InlineText(const InlineText& other) : InlineText() { assign(other.view()); }
    InlineText& operator=(const InlineText& other) {
        if (this != &other) assign(other.view());
        return *this;
    }

    /// Stores a copy up to the first U+0000. The text may lie in this one.
    void assign(std::wstring_view text);
    void clear();

    /// Both valid until the next change.
    const wchar_t* c_str() const { return heap_ ? heap_.get() : inline_; }
    std::wstring_view view() const { return {c_str(), length_}; }
    std::size_t length() const { return length_; }
    bool empty() const { return length_ == 0; }

private:
    wchar_t inline_[INLINE_LENGTH + 1];
    std::unique_ptr<wchar_t[]> heap_;
    std::size_t length_ = 0;
};

}  // namespace fscanner
