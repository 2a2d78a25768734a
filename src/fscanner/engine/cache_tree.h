#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fscanner/engine/cache_store.h"

namespace fscanner {

/// Tells whether a chain of parents is a circle of a damaged table. A chain may be as long
/// as there are directories; one ID is kept, and replaced after ever more steps.
class CircleGuard {
public:
    /// To be asked about each ID of the chain. Sooner or later true in a circle, never
    /// outside of one.
    bool closes(unsigned id) {
        if (id == kept_) return true;
        if (--left_ > 0) return false;
        kept_ = id;
        left_ = length_ *= 2;
        return false;
    }

private:
    unsigned kept_ = 0;  // no directory's ID
    unsigned long long length_ = 16;
    unsigned long long left_ = length_;
};

/// The names of the directories that a path leads through, the topmost first; that of "/"
/// is "/".
std::vector<std::wstring> pathNames(const wchar_t* path);

/// Makes a directory, and all that hold it, trees that were never built: what is missing
/// in one of them must not be missing in later answers.
void forgetTimes(CacheStore& store, unsigned id);

/// A built tree that lies in no other.
struct CachedRoot {
    unsigned id;
    unsigned parent;
    unsigned built;  ///< seconds since the epoch
    std::wstring path;
};

/// A directory of a tree, and its record.
struct TreeMember {
    unsigned record;
    unsigned id;
    bool operator==(const TreeMember&) const = default;
    bool operator<(const TreeMember& other) const { return record < other.record; }
};

/// Directories of the cache as a tree: from a path to its record, from an ID to its
/// path, and the removal of a subtree.
///
/// The directories table holds each directory's own name and its parent's ID, 0 at
/// the top; a path exists only as a chain of parents.
class CacheTree {
public:
    explicit CacheTree(CacheStore& store) : store_(store) {}

    /// Whether `path` is in the cache; `candidates` is then on its record. Without
    /// `caseFlag` a path of exactly this spelling is preferred.
    bool findPathByName(RecordSet& candidates, RecordSet& ancestors, const wchar_t* path,
                        bool caseFlag);
    /// Writes the path of directory `id` into `buffer`, which has room for
    /// `bufferSize` characters and needs 4 more than the path.
    bool findPathById(RecordSet& directories, unsigned id, wchar_t* buffer, unsigned bufferSize);

    /// Whether the directory `parent` holds one of this name; `records` is then on it. The
    /// parent 0 is that of the topmost ones.
    bool findChild(RecordSet& records, unsigned parent, const std::wstring& name);

    /// Whether directory `id` is `root` or lies below it.
    bool isInside(RecordSet& directories, unsigned id, unsigned root);

    /// Whether the cache holds nothing but the tree of directory `id` and the way to it, none of
    /// whose directories was built.
    bool isAlone(RecordSet& directories, unsigned id);

    /// The directories of a tree by the place of their records, the root first, if they are so few
    /// that to look each up costs less than to read through the tables.
    std::optional<std::vector<TreeMember>> smallTree(unsigned root);

    /// How many directories a tree has, if no record is damaged. Reads all of them.
    unsigned long long countDirectories(unsigned root);

    /// Forgets the paths that are kept: to be called when records were removed.
    void forget() { pathMap_.clear(); }
    /// Removes the files whose directory is `pathId`. False when one could not be removed.
    bool removeFiles(FS_Table& files, unsigned pathId);
    /// Removes directory `id` with all below it. False when a record could not be removed.
    bool removeTree(FS_Table& directories, FS_Table& files, unsigned id);
    /// Removes directory `id`, and those that hold it, as long as they hold nothing else and
    /// were never built. False when a record could not be removed.
    bool removeEmpty(FS_Table& directories, unsigned id);

    /// Found from the top down, so that nothing in a built tree is read.
    std::vector<CachedRoot> roots();

private:
    struct Known {
        std::wstring name;
        unsigned parent;
    };

    bool findSpelledPath(RecordSet& candidates, RecordSet& ancestors, const wchar_t* path,
                         bool caseFlag);
    const Known* known(RecordSet& directories, unsigned id);
    bool removeFromParent(RecordSet& directory);

    CacheStore& store_;
    std::map<unsigned, Known> pathMap_;
};

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
    /// Whether that is where it is.
    bool isAt(unsigned id) const { return !levels_.empty() && levels_.back().id == id; }
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
