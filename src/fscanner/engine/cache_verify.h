#pragma once

#include <functional>
#include <limits>
#include <vector>

#include "fscanner/discovery/mount_map.h"
#include "fscanner/discovery/path_info.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/tree_changes.h"

namespace fscanner {

/// A directory that is not as the cache has it.
struct StaleDirectory {
    enum class State {
        changed,  ///< its entries may be others; those below it are looked at one by one
        gone,     ///< it is no directory any more; what was below it is not looked at
        covered,  ///< another drive, which is no part of the tree, has come there: the same
    };
    unsigned id;
    State state;
    bool facts = false;  ///< files of it may have other sizes or attributes without a trace
    bool operator==(const StaleDirectory&) const = default;
};

/// Asked now and then whether to go on, with the number of directories so far.
using GoesOn = std::function<bool(unsigned long long)>;

/// The tree to be verified. Refers to objects of the caller.
struct TreeView {
    const PathDrive& root;  ///< a path that is not recursive is one directory
    const MountMap& mounts;
    const GoesOn& goesOn;
    bool facts;  ///< whether the query goes by stored sizes and attributes
    /// The directories of so many levels are looked at; the root is the first.
    unsigned levels = std::numeric_limits<unsigned>::max();
    bool renews = true;  ///< many directories that only need new stamps are worth a change
};

/// What a comparison of a tree's directories with their stamps told.
struct Verification {
    enum class End {
        finished,
        notTrusted,  ///< stamps say nothing on this file system
        damaged,     ///< a record cannot be read; the store knows
        stopped,     ///< the caller said so
    };
    End end = End::finished;
    std::vector<StaleDirectory> stale;   ///< a directory follows the one that holds it
    unsigned long long directories = 0;  ///< that were looked at
};

/// Whether directories of the file system of this path tell of changes. False also where that
/// cannot be found out.
bool isVerifiable(const wchar_t* path);

/// Looks at each directory of the tree, whose root is in the cache with the ID `rootId`, and at no
/// file: no directory is read, and no link is followed. Nothing is changed. Other drives are not
/// touched. What is not stale held the same entries when the call began as when the tree was
/// built.
Verification verifyTree(CacheStore& store, unsigned rootId, const TreeView& view);

/// The same where it is known which directories can have changed: no other is looked at.
Verification verifyChanges(CacheStore& store, CacheTree& tree, unsigned rootId,
                           const TreeView& view, const TreeChanges& changes);

}  // namespace fscanner
