#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/engine/query_plan.h"
#include "fscanner/engine/tree_changes.h"
#include "fscanner/engine/watch_protocol.h"

namespace fscanner {

class FsMonitor;
class FsQuery;

struct WatchedTree {
    using Clock = std::chrono::steady_clock;

    PathDrive pair;
    std::optional<WatchPlace> place;  ///< when its watch began
    bool watched = false;             ///< by the monitor
    bool current = false;             ///< the cache has it, but for changes that are known
    Clock::time_point watchAt{};      ///< not to be watched anew before
    std::chrono::milliseconds pause{};
    std::wstring problem;                 ///< why it cannot be watched
    std::map<std::wstring, bool> mounts;  ///< the mount points inside; whether a scan stops there
    std::set<std::wstring> unseen;  ///< events tell nothing of what lies below these directories

    const wchar_t* path() const { return pair.path.getPathName(); }
    bool isAtItsPlace() const { return place && watchPlaceOf(path()) == place; }
    /// What can have changed at a path in the tree, when events told of `changes`.
    TreeChanges changesIn(std::wstring_view path, const ChangeSet& changes) const;
};

/// The trees of a watch, and what events, mounts and others do to them. A tree that is not current
/// is compared with the disk; one that is not watched is first watched anew.
class WatchedTrees {
public:
    explicit WatchedTrees(FsMonitor& monitor) : monitor_(monitor) {}

    /// The local trees that a query searches, with the mounts of now. Where it cannot be told which
    /// those are, none is watched.
    void plan(const FsQuery& query);
    bool planned() const { return planned_; }
    const QueryPlan& queryPlan() const { return plan_; }

    /// Watches those that are not. Each at its time: to watch a large tree may take long, and what
    /// makes that necessary may be done by others again and again.
    void watch();

    auto begin() const { return trees_.begin(); }
    auto end() const { return trees_.end(); }
    bool empty() const { return trees_.empty(); }
    bool anyWatched() const;
    /// Whether something is to be done for one, but for those that are to be watched.
    bool anyUnverified() const;
    /// When one is to be watched.
    std::optional<WatchedTree::Clock::time_point> nextWatch() const;
    /// The smallest tree that a path lies in. Null if there is none.
    const WatchedTree* treeOf(std::wstring_view path) const;
    std::vector<PathDrive> watchedPairs() const;

    /// Those that are watched are as the cache has them.
    void setCurrent();
    /// Whether any is as the cache has it is not known.
    void distrust();
    /// What events tell of a tree is said by its path: it is not to lead elsewhere. Looks at the
    /// trees that a path lies in, or at all.
    void checkPlaces(std::optional<std::wstring_view> path = {});
    /// Events of a tree were lost, or of all if there is no path. `watched`: more will come.
    void lose(const wchar_t* path, bool watched);
    /// No events come of a directory in a tree and of all below it. False where it is a watched
    /// tree, or holds one.
    bool leaveUnseen(std::wstring_view path);
    /// A directory went or came. True if a mount point in a tree may have moved with it, of which
    /// the mount table tells nobody.
    bool takeMove(std::wstring_view path);

private:
    void watch(WatchedTree& tree);

    FsMonitor& monitor_;
    QueryPlan plan_;
    bool planned_ = false;
    std::vector<WatchedTree> trees_;
};

}  // namespace fscanner
