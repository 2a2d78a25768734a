#include "fscan/output/backlog.h"

#include <algorithm>

namespace fscan {

namespace {

constexpr std::size_t memoryBound = 8 << 20;
constexpr std::size_t pieceSize = 1 << 20;

}  // namespace

bool Backlog::add(std::string_view text) {
    const bool inMemory = !hasMoreInFile() && front_.size() - taken_ + text.size() <= memoryBound;
    if (!inMemory) {
        if (!file_) file_.emplace();
        return file_->append(text);
    }
    // Reserved at once, so that nothing is copied to grow. Pages that are not used cost nothing.
    front_.reserve(2 * memoryBound);
    if (taken_ > memoryBound) {
        front_.erase(0, taken_);
        taken_ = 0;
    }
    front_ += text;
    return true;
}

std::string_view Backlog::front() {
    if (taken_ == front_.size() && hasMoreInFile()) {
        front_.resize(std::min(pieceSize, static_cast<std::size_t>(file_->size() - given_)));
        taken_ = 0;
        if (!file_->read(given_, front_)) front_.clear();
        given_ += static_cast<off_t>(front_.size());
    }
    return std::string_view(front_).substr(taken_);
}

void Backlog::drop(std::size_t size) {
    taken_ += size;
    if (taken_ < front_.size() || hasMoreInFile()) return;
    // The queue is empty: the next text is kept in memory again.
    front_.clear();
    taken_ = 0;
    given_ = 0;
    file_.reset();
}

}  // namespace fscan
