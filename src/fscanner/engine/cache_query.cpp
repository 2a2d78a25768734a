#include "fscanner/engine/cache_query.h"

#include <algorithm>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/time.h"
#include "fscanner/discovery/path_resolver.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_build.h"
#include "fscanner/engine/file_processor.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {

namespace {

using Refreshed = CacheStore::Refreshed::How;

constexpr unsigned kAllLevels = std::numeric_limits<unsigned>::max();

constexpr const char* kMonitored = "FS_Cache::executeQueryCacheOnlyAndMonitor";

}  // namespace

CacheQuery::CacheQuery(CacheStore& store, const FsQuery& query, const TreeRules& rules,
                       FsResultSetWriter* writer, unsigned timeout)
    : store_(store),
      tree_(store),
      query_(query),
      writer_(writer),
      timeout_(timeout),
      now_(static_cast<unsigned>(getCurrentTime())),
      oldest_(now_ - rules.maxAge),
      verify_(rules.verify && rules.maxAge != FS_CACHE_REBUILD),
      source_(rules.changes) {}

// ---- Cache only -------------------------------------------------------------

Status CacheQuery::cacheOnly(const QueryPlan& plan, const char* name) {
    const Status status = readTrees(plan, name);
    const std::vector<PathDrive> pairs = cachedPairs(plan);
    if (status == Status::success)
        return extractResults(store_, writer_, extractionOf(plan, pairs));
    // After a time-out the observer is still told what was met until then.
    if (status != Status::unusable) tellUnread(store_, extractionOf(plan, pairs));
    return status;
}

// Scans the drives that the cache does not hold, and builds the trees that are missing or old.
Status CacheQuery::readTrees(const QueryPlan& plan, const char* name) {
    for (const PathDrive& pair : plan.pairs()) {
        if (QueryPlan::isLocal(pair) && query_.getLinks() == FsLinks::leave) {
            const Status status = serve(plan, pair, name);
            if (status != Status::success) return status;
            continue;
        }
        debug(
            "FS_Cache::%s - scanning [mdRemoteDriveGroup] and [mdOtherDriveGroup] [%ls] path...\n",
            name, pair.path.getPathName());
        if (scanDirectly(plan, pair) == WalkStatus::timedOut) return Status::queryTimedOut;
    }
    return Status::success;
}

// Builds the tree of a local pair unless the cache has it and it is young enough.
Status CacheQuery::serve(const QueryPlan& plan, const PathDrive& pair, const char* name) {
    const wchar_t* path = pair.path.getPathName();
    debug("FS_Cache::%s - scanning [mdLocalDriveGroup] [%ls] path...\n", name, path);
    if (!needsTree(plan, pair)) return Status::success;
    const Found found = find(pair);
    // A tree that only damage hides must not be built a second time.
    if (store_.damaged()) return Status::unusable;
    if (const CacheStore::Refreshed* const done = refreshed(plan, pair, found)) {
        // The observer was told of the scan when the tree was built.
        if (done->how == Refreshed::verified) tellOfCached(path, found.built, &done->verification);
        return Status::success;
    }
    const Fitness fitness =
        verified_.contains(keyOf(plan, pair)) ? Fitness::fits : judge(plan, pair, found);
    const Status status = settle(plan, pair, found, fitness, name);
    if (status != Status::success || fitness == Fitness::tooOld || scanned_.contains(path))
        return status;
    debug("FS_Cache::%s - retrieving data from cache...\n", name);
    const auto verified = verified_.find(keyOf(plan, pair));
    tellOfCached(path, found.built, verified == verified_.end() ? nullptr : &verified->second);
    return status;
}

// Sees to it that the tree of a local pair can answer.
Status CacheQuery::settle(const QueryPlan& plan, const PathDrive& pair, const Found& found,
                          Fitness fitness, const char* name) {
    store_.setWatched(looked_.watched);
    switch (fitness) {
        case Fitness::fits:
            return Status::success;
        case Fitness::tooOld:
            return buildsTree(plan, pair) ? refresh(plan, pair, found, name)
                                          : scanInstead(plan, pair);
        case Fitness::changed:
            return store_.readOnly() ? Status::needsChange : bringUpToDate(plan, pair, found, name);
        case Fitness::stopped:
            return Status::queryTimedOut;
        default:
            return Status::unusable;
    }
}

// Answers a local pair without a tree, which would cost more.
Status CacheQuery::scanInstead(const QueryPlan& plan, const PathDrive& pair) {
    if (!writer_) return Status::success;
    scanned_.emplace(pair.path.getPathName());
    const WalkStatus walked = scanDirectly(plan, pair);
    return walked == WalkStatus::timedOut ? Status::queryTimedOut : Status::success;
}

// Builds the tree of a local pair anew.
Status CacheQuery::refresh(const QueryPlan& plan, const PathDrive& pair, const Found& found,
                           const char* name) {
    const wchar_t* path = pair.path.getPathName();
    if (found.record) debug("FS_Cache::%s - data found on cache, but cache age is old!\n", name);
    debug("FS_Cache::%s - file system access on [%ls]\n", name, path);
    const unsigned long long expected =
        found.record && scanObserver() ? tree_.countDirectories(found.id) : 0;
    if (found.record) {
        if (!dropTree(found.id)) return Status::unusable;
        debug("FS_Cache::%s - tree removed!\n", name);
    }
    // `buildTree` stamps the record before it opens the directory: a path that is no
    // directory would look like a young, empty tree.
    const bool isDirectory = fs_examineSearched(path) == 0;
    store_.noteRefreshed(keyOf(plan, pair),
                         {isDirectory ? Refreshed::built : Refreshed::noDirectory});
    // Under a shared lock nothing is built.
    if (!isDirectory || store_.readOnly()) return Status::success;
    if (!found.record && !store_.beginTree()) return Status::unusable;
    // The cache holds whole subtrees, whatever the query asks for.
    const PathDrive whole{PathInfo(path, true), pair.drive};
    const Status status = buildTree(store_, tree_, whole, plan.mounts(), timeout_, expected);
    if (status == Status::success)
        debug("FS_Cache::%s - tree builded!\n", name);
    else
        debug("FS_Cache::%s - file system access failed for %ls\n", name, path);
    if (status == Status::buildTimedOut)
        debug("FS_Cache::%s - timeout during file system access, deleting cache...\n", name);
    return status;
}

bool CacheQuery::dropTree(unsigned id) {
    if (!tree_.isAlone(store_.directoryRecords(), id) || !store_.startAnew())
        return store_.beginTree() && tree_.removeTree(store_.directories(), store_.files(), id);
    tree_.forget();
    return true;
}

Status CacheQuery::refreshTrees(const QueryPlan& plan, const std::vector<PathDrive>& pairs,
                                KeptChanges& known) {
    for (const PathDrive& pair : pairs) {
        if (!needsTree(plan, pair)) continue;
        const Found found = find(pair);
        const Status status =
            settle(plan, pair, found, judgeBy(known, plan, pair, found), "refresh");
        if (status == Status::success) continue;
        if (status != Status::unusable) tellUnread(store_, extractionOf(plan, plan.pairs()));
        return status;
    }
    return Status::success;
}

// ---- Without a change -------------------------------------------------------

Status CacheQuery::readiness(const QueryPlan& plan, KeptChanges& changes) {
    changes = {};
    for (const PathDrive& pair : plan.pairs()) {
        if (!needsTree(plan, pair)) continue;
        const Found found = find(pair);
        if (refreshed(plan, pair, found)) continue;
        switch (judge(plan, pair, found)) {
            case Fitness::fits:
                break;
            case Fitness::changed:
                changes = {store_.version(), keyOf(plan, pair), looked_};
                return Status::needsChange;
            case Fitness::tooOld:
                if (buildsTree(plan, pair) &&
                    (found.record || fs_isValidPath(pair.path.getPathName())))
                    return Status::needsChange;
                break;
            case Fitness::stopped:
                return Status::queryTimedOut;
            default:
                return Status::unusable;
        }
    }
    return Status::success;
}

// Only under a shared lock: a session that may change the cache builds old trees anew.
const CacheStore::Refreshed* CacheQuery::refreshed(const QueryPlan& plan, const PathDrive& pair,
                                                   const Found& found) const {
    if (!store_.readOnly()) return nullptr;
    return store_.refreshed(keyOf(plan, pair), found.id, found.built);
}

// ---- Verification -----------------------------------------------------------

std::optional<TreeChanges> CacheQuery::changesIn(const PathDrive& pair) {
    return source_ ? source_->changesIn(pair.path.getPathName()) : std::nullopt;
}

// No look at the directories tells of sizes: where they alone decide, it is their age. A watcher
// tells of those that it saw change, which are not all: not of a file that was written by another
// of its hard links.
CacheQuery::Fitness CacheQuery::judge(const QueryPlan& plan, const PathDrive& pair,
                                      const Found& found) {
    looked_ = {};
    if (!verify_ || found.built == 0) return judgeAge(found);
    const unsigned start = getTickCount();
    const std::optional<TreeChanges> changes = changesIn(pair);
    looked_.watched = changes.has_value();
    if (!verifies(found)) return judgeAge(found);
    const GoesOn goesOn = goesOnSince(start, pair);
    TreeView view = viewOf(plan, pair, goesOn);
    view.renews = !changes || changes->applied;  // the watch will see to it
    looked_.verification = changes ? verifyChanges(store_, tree_, found.id, view, *changes)
                                   : verifyTree(store_, found.id, view);
    switch (looked_.verification.end) {
        case Verification::End::finished:
            break;
        case Verification::End::notTrusted:
            return judgeAge(found);
        case Verification::End::stopped:
            return Fitness::stopped;
        default:
            return Fitness::damaged;
    }
    // Where the directories have the same entries, nothing is to be changed.
    const TreeState state = compareTree(store_, view, looked_.verification.stale);
    looked_.milliseconds = getTickCount() - start;
    if (store_.damaged()) return Fitness::damaged;
    if (state == TreeState::stopped) return Fitness::stopped;
    if (state == TreeState::changed) return Fitness::changed;
    noteVerified(plan, pair);
    return Fitness::fits;
}

// By a comparison that was made for this query, if there is one.
CacheQuery::Fitness CacheQuery::judgeBy(KeptChanges& known, const QueryPlan& plan,
                                        const PathDrive& pair, const Found& found) {
    if (known.path != keyOf(plan, pair) || found.built == 0) return judge(plan, pair, found);
    looked_ = std::exchange(known, {}).look;  // not true any more when it was used
    return Fitness::changed;
}

GoesOn CacheQuery::goesOnSince(unsigned start, const PathDrive& pair) const {
    return [this, start, path = pair.path.getPathName()](unsigned long long directories) {
        const unsigned elapsed = getTickCount() - start;
        FsScanObserver* const observer = scanObserver();
        return elapsed < timeout_ &&
               (!observer || observer->progress({path, 0, directories, elapsed}));
    };
}

// Under a shared lock it is good for this query alone. A session that may change the cache has
// brought it up to date for the queries of its object.
void CacheQuery::noteVerified(const QueryPlan& plan, const PathDrive& pair) {
    const FsVerification result{nullptr,
                                looked_.verification.directories,
                                looked_.verification.stale.size(),
                                looked_.milliseconds,
                                goesByStoredFacts(),
                                looked_.watched};
    verified_[keyOf(plan, pair)] = result;
    if (!store_.readOnly()) store_.noteRefreshed(keyOf(plan, pair), {Refreshed::verified, result});
}

TreeView CacheQuery::viewOf(const QueryPlan& plan, const PathDrive& pair, const GoesOn& goesOn) {
    return {pair, plan.mounts(), goesOn, goesByStoredFacts() || goesByStoredKinds(),
            levelsOf(plan, pair)};
}

Status CacheQuery::bringUpToDate(const QueryPlan& plan, const PathDrive& pair, const Found& found,
                                 const char* name) {
    const auto& stale = looked_.verification.stale;
    const bool rootIsGone =
        stale.front().id == found.id && stale.front().state != StaleDirectory::State::changed;
    if (rootIsGone && !buildsTree(plan, pair))
        return dropTree(found.id) ? scanInstead(plan, pair) : Status::unusable;
    if (rootIsGone) return refresh(plan, pair, found, name);
    debug("FS_Cache::%s - %u directories are read again in [%ls]\n", name,
          static_cast<unsigned>(stale.size()), pair.path.getPathName());
    const unsigned start = getTickCount();
    const GoesOn goesOn = goesOnSince(start, pair);
    const Status status = updateTree(store_, tree_, viewOf(plan, pair, goesOn), stale, timeout_);
    looked_.milliseconds += getTickCount() - start;
    if (status != Status::success) return status;
    // The system failed to read a directory, and so the tree counts as never built.
    const Found updated = find(pair);
    if (updated.built == 0 && !buildsTree(plan, pair)) return scanInstead(plan, pair);
    if (updated.built == 0) return refresh(plan, pair, updated, name);
    noteVerified(plan, pair);
    return status;
}

// A criteria over sizes or attributes, and over nothing else, finds its files by the stored ones.
Examined CacheQuery::examined() {
    if (!verify_) return Examined::none;
    if (!examined_) {
        const FileProcessor criteria(query_.getQuery(), query_.getCriteriaCaseSensitive(),
                                     CriteriaRules::search);
        examined_ = criteria.needsInfoAlone() ? Examined::matches
                    : criteria.needsInfo()    ? Examined::candidates
                                              : Examined::none;
    }
    return *examined_;
}

// The kinds of files are among their stored attributes, and a file may take the name of one of
// another kind.
bool CacheQuery::goesByStoredKinds() const {
    return verify_ && !EntryChoice{query_.getKinds()}.hasAllFiles();
}

unsigned CacheQuery::levelsOf(const QueryPlan& plan, const PathDrive& pair) const {
    return pair.path.getRecursive() ? plan.choiceFor(query_, pair).depth.most : 1;
}

// What is found out about some levels of a tree says nothing of those below.
std::wstring CacheQuery::keyOf(const QueryPlan& plan, const PathDrive& pair) const {
    const unsigned levels = levelsOf(plan, pair);
    return pair.path.getPathName() + (levels == kAllLevels ? L"" : L"/." + std::to_wstring(levels));
}

// A search of limited depth is not worth the reading of the whole tree.
bool CacheQuery::buildsTree(const QueryPlan& plan, const PathDrive& pair) const {
    return !pair.path.getRecursive() || levelsOf(plan, pair) == kAllLevels;
}

// The query may exclude the whole path: nothing of the tree will be extracted.
bool CacheQuery::needsTree(const QueryPlan& plan, const PathDrive& pair) const {
    return QueryPlan::isLocal(pair) && query_.getLinks() == FsLinks::leave &&
           !leavesOut(plan, pair) && plan.choiceFor(query_, pair).depth.most > 0;
}

bool CacheQuery::leavesOut(const QueryPlan& plan, const PathDrive& pair) const {
    return checkPathList(pair.path.getPathName(), plan.exclusions(pair), query_.getCaseSensitive(),
                         pair.path.getRecursive());
}

void CacheQuery::tellOfCached(const wchar_t* path, unsigned built,
                              const FsVerification* verification) const {
    FsScanObserver* const observer = scanObserver();
    if (!observer) return;
    observer->fromCache(path, now_ > built ? now_ - built : 0);
    if (!verification) return;
    FsVerification told = *verification;
    told.path = path;
    observer->verified(told);
}

// ---- Monitored --------------------------------------------------------------

Status CacheQuery::monitored(const QueryPlan& plan) {
    Status status = Status::success;
    std::vector<PathDrive> fromCache;
    for (const PathDrive& pair : plan.pairs()) {
        const wchar_t* path = pair.path.getPathName();
        debug("%s - scanning [%ls] path...\n", kMonitored, path);
        const bool local = QueryPlan::isLocal(pair) && query_.getLinks() == FsLinks::leave;
        const unsigned built = local ? find(pair).built : 0;
        if (store_.damaged()) return Status::unusable;
        if (built != 0) {
            debug("%s - retrieving data from cache [monitor supported]...\n", kMonitored);
            tellOfCached(path, built);
            fromCache.push_back(pair);
        } else {
            debug("%s - file system %s access on [%ls]\n", kMonitored,
                  local ? "[mdLocalDriveGroup]" : "[mdRemoteDriveGroup] and [mdOtherDriveGroup]",
                  path);
            if (scanDirectly(plan, pair) == WalkStatus::timedOut) status = Status::queryTimedOut;
        }
        // Kept as it is: after a time-out at a remote pair the loop goes on to the next local one.
        if (local && status != Status::success) break;
    }
    if (fromCache.empty() || status != Status::success) return status;
    // The other pairs were scanned: trees of the cache below them would be written twice.
    return extractResults(store_, writer_, extractionOf(plan, fromCache));
}

// ---- What they share --------------------------------------------------------

WalkStatus CacheQuery::scanDirectly(const QueryPlan& plan, const PathDrive& pair) {
    FileProcessor processor(query_.getQuery(), query_.getCriteriaCaseSensitive(),
                            CriteriaRules::search);
    const bool limited = query_.getLinks() != FsLinks::leave || !buildsTree(plan, pair);
    const unsigned timeout = limited && QueryPlan::isLocal(pair) ? timeout_ : kNoTimeout;
    return scanPair(*writer_, query_, plan, processor, pair, timeout);
}

// The time 0 is that of an ancestor's record, which was never built. A pair names one
// directory: the case mode is that of criteria and exclusions, and a neighbour that
// differs by case alone must not answer in its place.
CacheQuery::Found CacheQuery::find(const PathDrive& pair) {
    RecordSet& record = store_.directoryRecords();
    if (!tree_.findPathByName(record, store_.ancestorRecords(), pair.path.getPathName(), true))
        return {};
    // One that could not be read may be readable now: that costs a look, and no walk.
    const unsigned id = record.getFieldAsInt32(DIRECTORIES_ID);
    if (store_.unread().contains(id) || lacksLongPaths(id)) return {true, id, 0};
    return {true, id, store_.builtTime(record)};
}

// Whether the tree was built by a host that wanted no long paths, lacks some, and is asked
// by one that wants them.
bool CacheQuery::lacksLongPaths(unsigned root) {
    if (!FsFileInfo::getLongPathSupport()) return false;
    const auto& unread = store_.unread().all();
    return std::any_of(unread.begin(), unread.end(), [&](const auto& one) {
        return one.second.reason == FsSkipReason::tooLong &&
               tree_.isInside(store_.ancestorRecords(), one.first, root);
    });
}

// A tree of the future was built before the clock was set back: its age is not known.
bool CacheQuery::isYoung(unsigned built) const {
    return built != 0 && built >= oldest_ && built <= static_cast<unsigned>(getCurrentTime());
}

std::vector<PathDrive> CacheQuery::cachedPairs(const QueryPlan& plan) const {
    std::vector<PathDrive> pairs;
    for (const PathDrive& pair : plan.pairs())
        if (QueryPlan::isLocal(pair) && query_.getLinks() == FsLinks::leave &&
            !scanned_.contains(pair.path.getPathName()))
            pairs.push_back(pair);
    return pairs;
}

ExtractionRequest CacheQuery::extractionOf(const QueryPlan& plan,
                                           const std::vector<PathDrive>& pairs) {
    std::vector<PathInfo> exclude = plan.localExclusions();
    PathHelper::removePathListDuplicate(exclude);
    std::vector<EntryChoice> choices;
    choices.reserve(pairs.size());
    for (const PathDrive& pair : pairs) choices.push_back(plan.choiceFor(query_, pair));
    return {.criteria = query_.getQuery(),
            .criteriaCaseSensitive = query_.getCriteriaCaseSensitive(),
            .mounts = plan.stopsOf(query_),
            .pairs = pairs,
            .choices = std::move(choices),
            .exclude = std::move(exclude),
            .caseSensitive = query_.getCaseSensitive(),
            .timeout = timeout_,
            .examined = examined()};
}

void CacheQuery::explain(const QueryPlan& plan, const PathDrive& pair, bool monitored,
                         FsPlanStep& step) {
    if (!QueryPlan::isLocal(pair) || step.way == FsSearchWay::left) return;
    if (query_.getLinks() != FsLinks::leave) return;
    const Found found = find(pair);
    step.inCache = found.built != 0;
    step.ageSeconds = step.inCache && now_ > found.built ? now_ - found.built : 0;
    if (!monitored && verify_ && found.built != 0) {
        const std::optional<TreeChanges> changes = changesIn(pair);
        step.verified = verifies(found) && isVerifiable(pair.path.getPathName());
        step.watched = step.verified && changes;
    }
    const bool served = monitored ? step.inCache : step.verified || isYoung(found.built);
    if (served) {
        step.way = FsSearchWay::cached;
    } else if (!monitored && step.way == FsSearchWay::direct && buildsTree(plan, pair)) {
        step.way = FsSearchWay::rebuilt;
    }
}

// ---- The kept plan ----------------------------------------------------------

bool samePathList(const std::vector<PathInfo>& a, const std::vector<PathInfo>& b) {
    return a == b;
}

bool sameFileSystemList(const std::vector<FileSystemInfo>& a,
                        const std::vector<FileSystemInfo>& b) {
    return a == b;
}

bool KeptPlan::Basis::operator==(const Basis& other) const {
    return table == other.table && places == other.places &&
           samePathList(includedPaths, other.includedPaths) &&
           samePathList(excludedPaths, other.excludedPaths) &&
           sameFileSystemList(includedFileSystems, other.includedFileSystems) &&
           sameFileSystemList(excludedFileSystems, other.excludedFileSystems);
}

// Nobody waits for another's plan: what reads the mount table and the paths runs on a copy.
std::shared_ptr<const QueryPlan> KeptPlan::refresh(const FsQuery& query) {
    std::unique_lock lock(guard_);
    const std::shared_ptr<const Kept> kept = kept_;
    lock.unlock();
    auto fresh = kept ? std::make_shared<Kept>(*kept) : std::make_shared<Kept>();
    if (!fresh->plan.discover(query)) return nullptr;
    Basis basis{fresh->plan.table(),
                {},
                query.getIncludedPaths(),
                query.getExcludedPaths(),
                query.getIncludedFileSystems(),
                query.getExcludedFileSystems()};
    const auto mayTouch = [&fresh](std::string_view path) { return fresh->plan.mayTouch(path); };
    for (const PathInfo& path : basis.includedPaths) basis.places.push_back(realPathOf(path));
    for (const PathInfo& path : basis.excludedPaths)
        basis.places.push_back(realPathOf(path, mayTouch));
    if (kept && kept->basis == basis) return {kept, &kept->plan};
    fresh->plan.prune(query);
    fresh->plan.resolve(query);
    fresh->basis = std::move(basis);
    lock.lock();
    kept_ = fresh;
    return {fresh, &fresh->plan};
}

}  // namespace fscanner
