#pragma once

#include <string>
#include <vector>

#include "fscanner/engine/cache_store.h"

namespace fscanner {

/// The path of one directory after the other, by their IDs, for a reader of files in
/// storage order: the next file's directory is mostly near the last one's, and shares
/// its parents.
///
/// It keeps the chain from the top to the directory where it is. What a new chain
/// shares with it is not looked up again, and what it does not is expected where the
/// record of that ID lies if none was ever removed: IDs and records count alike. The
/// index is asked only when another record lies there. The answer is always that of
/// `CacheTree::findPathById` with a buffer that is large enough. The table must not change
/// meanwhile.
class DirectoryChain {
public:
    explicit DirectoryChain(CacheStore& store);

    /// Goes to directory `id`. False, and the chain is empty, when it or one of its
    /// parents has no record, or when its parents are a circle of a damaged table.
    bool enter(unsigned id);
    /// The path, without a "/" at its end unless its name has one. Until `enter`.
    const std::wstring& path() const { return path_; }
    /// The path of the first directory of the chain whose path has more characters.
    std::wstring topmostBeyond(std::size_t length) const;
    /// The number of directories in the chain, and how many of them the last `enter`
    /// found there.
    std::size_t depth() const { return levels_.size(); }
    std::size_t kept() const { return kept_; }

private:
    struct Level {
        unsigned id;
        bool joined;         // its own name ends in the "/" before the next one
        std::size_t length;  // of the path up to here
    };

    bool look(unsigned id);
    bool lookUp(unsigned id);
    std::size_t levelOf(unsigned id) const;
    bool climb(unsigned id);
    void descend();
    bool fail();

    CacheStore& store_;
    Fields record_;  // the directory that was looked at last
    const TextField* name_;
    const Int32Field* id_;
    const Int32Field* parent_;
    unsigned shift_;  // from an ID to where its record lies
    std::vector<Level> levels_;
    std::vector<Level> below_;  // what is to be entered, the deepest first
    std::vector<std::wstring> names_;
    std::wstring path_;
    std::size_t kept_ = 0;
};

}  // namespace fscanner
