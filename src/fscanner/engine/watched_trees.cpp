#include "fscanner/engine/watched_trees.h"

#include <algorithm>
#include <cwchar>

#include "fscanner/common/path_text.h"
#include "fscanner/engine/cache_verify.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"

namespace fscanner {

namespace {

using std::chrono::milliseconds;

// A tree is watched anew for at most a fifth of the time.
constexpr int kPauseFactor = 4;
constexpr milliseconds kShortest{100};
constexpr milliseconds kFirstRetry{1000};
constexpr milliseconds kLastRetry{60'000};
// So many are compared for each answer. Others may make more, and take them away again.
constexpr std::size_t kMostUnseen = 1000;

const WatchedTree* findTree(const std::vector<WatchedTree>& trees, std::wstring_view path) {
    const auto found = std::find_if(trees.begin(), trees.end(),
                                    [&](const WatchedTree& tree) { return path == tree.path(); });
    return found != trees.end() ? &*found : nullptr;
}

}  // namespace

// What lies in directories that no event tells of is compared each time.
TreeChanges WatchedTree::changesIn(std::wstring_view path, const ChangeSet& changes) const {
    if (unseen.empty()) return {false, changes.within(path)};
    ChangeSet all = changes;
    for (const std::wstring& directory : unseen) all.add(directory, ChangedDirectory::below);
    return {false, all.within(path)};
}

void WatchedTrees::plan(const FsQuery& query) {
    QueryPlan plan;
    planned_ = plan.make(query);
    if (!planned_) return lose(nullptr, false);
    plan_ = std::move(plan);
    std::vector<WatchedTree> trees;
    for (const PathDrive& pair : plan_.pairs()) {
        if (!QueryPlan::isLocal(pair)) continue;
        const WatchedTree* const known = findTree(trees_, pair.path.getPathName());
        WatchedTree tree = known ? *known : WatchedTree();
        tree.pair = PathDrive{PathInfo(pair.path.getPathName(), true), pair.drive};
        std::map<std::wstring, bool> mounts;
        for (const std::wstring& point : plan_.mounts().withoutCrossing().stopsInside(tree.pair))
            mounts[point] = plan_.mounts().stops(point, pair.drive);
        // A directory that came to light where a drive was has no watch of its own yet.
        if (!tree.isAtItsPlace() || tree.place->reused || mounts != tree.mounts)
            tree.watched = tree.current = false;
        tree.mounts = std::move(mounts);
        trees.push_back(std::move(tree));
    }
    for (const WatchedTree& old : trees_)
        if (!findTree(trees, old.path())) monitor_.unwatch(old.path());
    trees_ = std::move(trees);
}

void WatchedTrees::watch() {
    using Clock = WatchedTree::Clock;
    for (WatchedTree& tree : trees_) {
        const auto start = Clock::now();
        if (!planned_ || tree.watched || tree.watchAt > start) continue;
        watch(tree);
        const auto spent = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
        const milliseconds retry = std::max(tree.pause * 2, kFirstRetry);
        tree.pause = std::clamp(tree.watched ? spent * kPauseFactor : retry, kShortest, kLastRetry);
        tree.watchAt = Clock::now() + tree.pause;
    }
}

void WatchedTrees::watch(WatchedTree& tree) {
    tree.current = false;
    tree.problem.clear();
    tree.unseen.clear();
    for (const auto& [point, stops] : tree.mounts)
        if (!stops) tree.unseen.insert(point);
    tree.place = watchPlaceOf(tree.path());
    if (!tree.place)
        tree.problem = L"there is no such directory, or the system does not number mounts";
    else if (!isVerifiable(tree.path()))
        tree.problem = L"its file system does not tell of changes";
    else if (monitor_.watch(tree.path(), tree.problem) == 0)
        tree.problem = tree.isAtItsPlace() ? L"" : L"it was exchanged for another directory";
    tree.watched = tree.problem.empty();
    if (!tree.watched) tree.problem = std::wstring(tree.path()) + L": " + tree.problem;
}

bool WatchedTrees::anyWatched() const {
    return std::any_of(begin(), end(), [](const WatchedTree& tree) { return tree.watched; });
}

bool WatchedTrees::anyUnverified() const {
    const auto isUnverified = [](const WatchedTree& t) { return t.watched && !t.current; };
    return !planned_ || std::any_of(begin(), end(), isUnverified);
}

std::optional<WatchedTree::Clock::time_point> WatchedTrees::nextWatch() const {
    std::optional<WatchedTree::Clock::time_point> next;
    for (const WatchedTree& tree : trees_)
        if (planned_ && !tree.watched && (!next || tree.watchAt < *next)) next = tree.watchAt;
    return next;
}

const WatchedTree* WatchedTrees::treeOf(std::wstring_view path) const {
    const WatchedTree* found = nullptr;
    for (const WatchedTree& tree : trees_)
        if (isWithin(path, tree.path()) &&
            (!found || std::wcslen(tree.path()) > std::wcslen(found->path())))
            found = &tree;
    return found;
}

std::vector<PathDrive> WatchedTrees::watchedPairs() const {
    std::vector<PathDrive> pairs;
    for (const WatchedTree& tree : trees_)
        if (tree.watched) pairs.push_back(tree.pair);
    return pairs;
}

void WatchedTrees::setCurrent() {
    for (WatchedTree& tree : trees_) tree.current = tree.watched;
}

void WatchedTrees::distrust() {
    for (WatchedTree& tree : trees_) tree.current = false;
}

void WatchedTrees::checkPlaces(std::optional<std::wstring_view> path) {
    for (WatchedTree& tree : trees_)
        if (tree.watched && (!path || isWithin(*path, tree.path())) && !tree.isAtItsPlace())
            tree.watched = tree.current = false;
}

void WatchedTrees::lose(const wchar_t* path, bool watched) {
    for (WatchedTree& tree : trees_) {
        if (path && !isWithin(path, tree.path()) && !isWithin(tree.path(), path)) continue;
        tree.current = false;
        tree.watched = tree.watched && watched;
        // The monitor has failed, and may go on to do so.
        if (!path && !watched) tree.watchAt = WatchedTree::Clock::now() + kFirstRetry;
    }
}

bool WatchedTrees::leaveUnseen(std::wstring_view path) {
    const auto isInside = [path](const WatchedTree& tree) {
        return tree.watched && isWithin(tree.path(), path);
    };
    if (std::any_of(begin(), end(), isInside)) return false;
    for (WatchedTree& tree : trees_) {
        if (!isWithin(path, tree.path())) continue;
        tree.unseen.emplace(path);
        if (tree.unseen.size() <= kMostUnseen) continue;
        tree.watched = tree.current = false;
        tree.watchAt = WatchedTree::Clock::now() + kLastRetry;
    }
    return true;
}

// The way to a tree may be another one, too.
bool WatchedTrees::takeMove(std::wstring_view path) {
    const auto isInside = [path](const auto& mount) { return isWithin(mount.first, path); };
    bool mountsMoved = false;
    for (WatchedTree& tree : trees_) {
        if (isWithin(tree.path(), path)) tree.watched = tree.current = false;
        mountsMoved = mountsMoved || std::any_of(tree.mounts.begin(), tree.mounts.end(), isInside);
    }
    return mountsMoved;
}

}  // namespace fscanner
