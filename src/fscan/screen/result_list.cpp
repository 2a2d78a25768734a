#include "fscan/screen/result_list.h"

#include <algorithm>

namespace fscan {

void ResultList::clear() {
    paths_.clear();
    found_ = 0;
    cursor_ = first_ = 0;
}

void ResultList::add(std::string_view path) {
    ++found_;
    if (paths_.size() < kMost) paths_.emplace_back(path);
}

void ResultList::keep(const std::function<bool(const std::string& path)>& wanted) {
    std::erase_if(paths_, [&wanted](const std::string& path) { return !wanted(path); });
    found_ = paths_.size();
    cursor_ = first_ = 0;
}

void ResultList::move(long rows) {
    const long last = std::max(static_cast<long>(paths_.size()) - 1, 0L);
    moveTo(static_cast<std::size_t>(std::clamp(static_cast<long>(cursor_) + rows, 0L, last)));
}

void ResultList::moveTo(std::size_t row) {
    cursor_ = paths_.empty() ? 0 : std::min(row, paths_.size() - 1);
    follow();
}

void ResultList::setHeight(std::size_t rows) {
    height_ = std::max<std::size_t>(rows, 1);
    follow();
}

void ResultList::follow() {
    first_ = std::min(first_, cursor_);
    if (cursor_ >= first_ + height_) first_ = cursor_ - height_ + 1;
}

const std::string* ResultList::current() const {
    return cursor_ < paths_.size() ? &paths_[cursor_] : nullptr;
}

void ResultList::toggleMark() {
    const std::string* const path = current();
    if (path && marks_.erase(*path) == 0) marks_.insert(*path);
}

}  // namespace fscan
