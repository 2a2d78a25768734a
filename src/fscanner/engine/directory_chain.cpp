#include "fscanner/engine/directory_chain.h"

#include <algorithm>

#include "fscanner/engine/cache_tree.h"

namespace fscanner {

DirectoryChain::DirectoryChain(CacheStore& store)
    : store_(store),
      record_(store.directories().schema()),
      name_(record_.as<TextField>(DIRECTORIES_PATHNAME)),
      id_(record_.as<Int32Field>(DIRECTORIES_ID)),
      parent_(record_.as<Int32Field>(DIRECTORIES_PARENTID)),
      shift_(0U - 1) {}

bool DirectoryChain::enter(unsigned id) {
    if (!climb(id)) return fail();
    levels_.resize(kept_);
    path_.resize(kept_ == 0 ? 0 : levels_.back().length);
    descend();
    return !path_.empty() || fail();
}

std::wstring DirectoryChain::topmostBeyond(std::size_t length) const {
    const auto isLonger = [=](const Level& level) { return level.length > length; };
    const auto found = std::find_if(levels_.begin(), levels_.end(), isLonger);
    return path_.substr(0, found == levels_.end() ? path_.npos : found->length);
}

bool DirectoryChain::fail() {
    levels_.clear();
    path_.clear();
    kept_ = 0;
    return false;
}

/// The number of levels down to the directory's own; 0 when it is not in the chain.
std::size_t DirectoryChain::levelOf(unsigned id) const {
    std::size_t level = levels_.size();
    while (level > 0 && levels_[level - 1].id != id) --level;
    return level;
}

/// From the directory up to where the chain is met, or to the top.
bool DirectoryChain::climb(unsigned id) {
    below_.clear();
    CircleGuard circle;
    for (kept_ = levelOf(id); kept_ == 0; kept_ = levelOf(id)) {
        if (circle.closes(id) || !look(id)) return false;
        if (names_.size() == below_.size()) names_.emplace_back();
        names_[below_.size()] = name_->view();
        below_.push_back({id, name_->view().ends_with(L'/'), 0});
        id = parent_->value();
        if (id == 0) break;
    }
    return true;
}

void DirectoryChain::descend() {
    for (std::size_t i = below_.size(); i > 0; --i) {
        if (!levels_.empty() && !levels_.back().joined) path_ += L'/';
        path_ += names_[i - 1];
        levels_.push_back({below_[i - 1].id, below_[i - 1].joined, path_.size()});
    }
}

/// Reads the directory's record.
bool DirectoryChain::look(unsigned id) {
    FS_Table& directories = store_.directories();
    const unsigned expected = id + shift_;
    if (directories.isLive(expected) && directories.read(expected, record_) && id_->value() == id)
        return true;
    return lookUp(id);
}

bool DirectoryChain::lookUp(unsigned id) {
    RecordSet& records = store_.directoryRecords();
    if (!store_.lookups().byId(records, id)) return false;
    shift_ = records.recordId() - id;
    return store_.directories().read(records.recordId(), record_);
}

}  // namespace fscanner
