#include "fscanner/common/inline_text.h"

#include <cwchar>

namespace fscanner {

/// Releases the old block last, because `text` may point into it.
void InlineText::assign(std::wstring_view text) {
    text = text.substr(0, text.find(L'\0'));
    std::unique_ptr<wchar_t[]> block;
    if (text.size() > INLINE_LENGTH) {
        block = std::make_unique_for_overwrite<wchar_t[]>(text.size() + 1);
    }
    wchar_t* target = block ? block.get() : inline_;
    if (!text.empty()) std::wmemmove(target, text.data(), text.size());
    target[text.size()] = L'\0';
    length_ = text.size();
    heap_ = std::move(block);
}

void InlineText::clear() {
    heap_.reset();
    inline_[0] = L'\0';
    length_ = 0;
}

}  // namespace fscanner
