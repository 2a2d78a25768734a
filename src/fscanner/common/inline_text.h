#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace fscanner {

/// A terminated wide text that owns its characters. Up to 127 characters are stored
/// in the object, longer texts on the heap. The length is stored too, so that a
/// view costs nothing.
class InlineText {
public:
    static constexpr std::size_t INLINE_LENGTH = 127;

    InlineText() { inline_[0] = L'\0'; }
    InlineText(const InlineText& other) : InlineText() { assign(other.view()); }
    InlineText& operator=(const InlineText& other) {
        if (this != &other) assign(other.view());
        return *this;
    }

    /// Stores a copy up to the first U+0000. `text` may point into this object.
    void assign(std::wstring_view text);
    void clear();

    /// Both results are valid until the next change.
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
