#include "fscanner/platform/event.h"

#include <cwchar>
#include <new>
#include <utility>

namespace fscanner {

FS_Event::FS_Event(const wchar_t* entry, unsigned action) {
    if (!entry) return;
    const std::size_t room = std::wcslen(entry) + 1;
    entry_.reset(new (std::nothrow) wchar_t[room]);
    if (!entry_) return;
    std::wmemcpy(entry_.get(), entry, room);
    action_ = action;
}

FS_Event::FS_Event(const FS_Event& other) : FS_Event(other.getEntry(), other.action_) {}

FS_Event& FS_Event::operator=(const FS_Event& other) {
    if (this == &other) return *this;
    FS_Event copy(other);
    entry_ = std::move(copy.entry_);
    action_ = copy.action_;
    return *this;
}

void FS_Event::setInvalid() {
    entry_.reset();
    action_ = INVALID_ACTION;
}

}  // namespace fscanner
