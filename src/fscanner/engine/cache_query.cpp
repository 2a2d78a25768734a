#include "fscanner/engine/cache_query.h"

#include <algorithm>

#include "fscanner/common/debug.h"
#include "fscanner/common/time.h"
#include "fscanner/discovery/path_entry.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_build.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/walk.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {

namespace {

constexpr const char* kMonitored = "FS_Cache::executeQueryCacheOnlyAndMonitor";

}  // namespace

CacheQuery::CacheQuery(CacheStore& store, const FsQuery& query, unsigned maxCacheAge,
                       FsResultSetWriter* writer, unsigned timeout)
    : store_(store),
      tree_(store),
      query_(query),
      writer_(writer),
      timeout_(timeout),
      now_(static_cast<unsigned>(getCurrentTime())),
      oldest_(now_ - maxCacheAge) {}

// ---- Cache only -------------------------------------------------------------

int CacheQuery::cacheOnly(const QueryPlan& plan, const char* name) {
    const int status = readTrees(plan, name);
    if (status == FS_CACHE_SUCCESS) return extract(plan, plan.pairs(), extractResults);
    // Also who runs out of time hears what was met until then.
    if (status != FS_CACHE_UNUSABLE) extract(plan, plan.pairs(), tellUnread);
    return status;
}

// Scans what the cache does not keep, and what it has not or only old.
int CacheQuery::readTrees(const QueryPlan& plan, const char* name) {
    for (const PathDrive& pair : plan.pairs()) {
        if (QueryPlan::isLocal(pair)) {
            if (const int status = serve(plan, pair, name)) return status;
            continue;
        }
        debug(
            "FS_Cache::%s - scanning [mdRemoteDriveGroup] and [mdOtherDriveGroup] [%ls] path...\n",
            name, pair.path.getPathName());
        if (scanDirectly(plan, pair) == WALK_TIMED_OUT) return FS_CACHE_QUERY_TIMED_OUT;
    }
    return FS_CACHE_SUCCESS;
}

// Sees to it that a local pair's tree is in the cache and young enough.
int CacheQuery::serve(const QueryPlan& plan, const PathDrive& pair, const char* name) {
    const wchar_t* path = pair.path.getPathName();
    debug("FS_Cache::%s - scanning [mdLocalDriveGroup] [%ls] path...\n", name, path);
    const Found found = find(pair);
    // What was not found because of damage must not be built beside it.
    if (store_.damaged()) return FS_CACHE_UNUSABLE;
    // The observer has heard of the scan.
    if (isRefreshed(pair, found)) return FS_CACHE_SUCCESS;
    if (!isYoung(found.built)) return refresh(plan, pair, found, name);
    debug("FS_Cache::%s - retrieving data from cache...\n", name);
    tellOfCached(path, found.built);
    return FS_CACHE_SUCCESS;
}

// Builds the tree of a local pair anew.
int CacheQuery::refresh(const QueryPlan& plan, const PathDrive& pair, const Found& found,
                        const char* name) {
    const wchar_t* path = pair.path.getPathName();
    if (found.record) debug("FS_Cache::%s - data found on cache, but cache age is old!\n", name);
    debug("FS_Cache::%s - file system access on [%ls]\n", name, path);
    // What the query itself leaves out stays as it is: nothing of it will be extracted.
    if (leavesOut(plan, pair)) return FS_CACHE_SUCCESS;
    if (found.record) {
        if (!dropTree(found.id)) return FS_CACHE_UNUSABLE;
        debug("FS_Cache::%s - tree removed!\n", name);
    }
    // Building stamps before it checks: what is no directory would look like a young,
    // empty tree.
    const bool isDirectory = fs_examineSearched(path) == 0;
    store_.noteRefreshed(path, isDirectory);
    // For a reader it is one since the query began, at best.
    if (!isDirectory || store_.readOnly()) return FS_CACHE_SUCCESS;
    if (!found.record && !store_.beginTree()) return FS_CACHE_UNUSABLE;
    // The cache holds whole subtrees, whatever the query asks for.
    const PathDrive whole{PathInfo(path, true), pair.drive};
    const int status = buildTree(store_, tree_, whole, plan.mounts(), timeout_);
    if (status == WALK_FINISHED) {
        debug("FS_Cache::%s - tree builded!\n", name);
        return FS_CACHE_SUCCESS;
    }
    debug("FS_Cache::%s - file system access failed for %ls\n", name, path);
    if (status != WALK_TIMED_OUT) return FS_CACHE_UNUSABLE;
    debug("FS_Cache::%s - timeout during file system access, deleting cache...\n", name);
    return FS_CACHE_BUILD_TIMED_OUT;
}

bool CacheQuery::dropTree(unsigned id) {
    if (!tree_.isAlone(store_.directoryRecords(), id) || !store_.startAnew())
        return store_.beginTree() && tree_.removeTree(store_.directories(), store_.files(), id);
    tree_.forget();
    return true;
}

int CacheQuery::refreshTrees(const QueryPlan& plan) {
    for (const PathDrive& pair : plan.pairs()) {
        if (!QueryPlan::isLocal(pair)) continue;
        const Found found = find(pair);
        const int status =
            isYoung(found.built) ? FS_CACHE_SUCCESS : refresh(plan, pair, found, "refresh");
        if (status == FS_CACHE_SUCCESS) continue;
        if (status != FS_CACHE_UNUSABLE) extract(plan, plan.pairs(), tellUnread);
        return status;
    }
    return FS_CACHE_SUCCESS;
}

// ---- Without a change -------------------------------------------------------

bool CacheQuery::isAnswered(const QueryPlan& plan) {
    return std::all_of(plan.pairs().begin(), plan.pairs().end(), [&](const PathDrive& pair) {
        if (!QueryPlan::isLocal(pair)) return true;
        const Found found = find(pair);
        return isYoung(found.built) || isRefreshed(pair, found) || leavesOut(plan, pair) ||
               (!found.record && !fs_isValidPath(pair.path.getPathName()));
    });
}

// Who may change the cache builds a tree whenever it is too old.
bool CacheQuery::isRefreshed(const PathDrive& pair, const Found& found) const {
    return store_.readOnly() && store_.isRefreshed(pair.path.getPathName(), found.id);
}

bool CacheQuery::leavesOut(const QueryPlan& plan, const PathDrive& pair) const {
    return checkPathList(pair.path.getPathName(), plan.exclusions(pair), query_.getCaseSensitive(),
                         pair.path.getRecursive());
}

void CacheQuery::tellOfCached(const wchar_t* path, unsigned built) const {
    if (FsScanObserver* const observer = scanObserver())
        observer->fromCache(path, now_ > built ? now_ - built : 0);
}

// ---- Monitored --------------------------------------------------------------

int CacheQuery::monitored(const QueryPlan& plan) {
    int status = FS_CACHE_SUCCESS;
    std::vector<PathDrive> fromCache;
    for (const PathDrive& pair : plan.pairs()) {
        const wchar_t* path = pair.path.getPathName();
        debug("%s - scanning [%ls] path...\n", kMonitored, path);
        const bool local = QueryPlan::isLocal(pair);
        const unsigned built = local ? find(pair).built : 0;
        if (store_.damaged()) return FS_CACHE_UNUSABLE;
        if (built != 0) {
            debug("%s - retrieving data from cache [monitor supported]...\n", kMonitored);
            tellOfCached(path, built);
            fromCache.push_back(pair);
        } else {
            debug("%s - file system %s access on [%ls]\n", kMonitored,
                  local ? "[mdLocalDriveGroup]" : "[mdRemoteDriveGroup] and [mdOtherDriveGroup]",
                  path);
            if (scanDirectly(plan, pair) == WALK_TIMED_OUT) status = FS_CACHE_QUERY_TIMED_OUT;
        }
        // Tested behind local pairs only: after a remote one the loop goes on.
        if (local && status != FS_CACHE_SUCCESS) break;
    }
    if (fromCache.empty() || status != FS_CACHE_SUCCESS) return status;
    // With the other pairs, old subtrees below what was just scanned would come twice.
    return extract(plan, fromCache, extractResults);
}

// ---- What they share --------------------------------------------------------

int CacheQuery::scanDirectly(const QueryPlan& plan, const PathDrive& pair) {
    FileProcessor processor(query_.getQuery(), query_.getCaseSensitive(), CriteriaRules::search);
    return scanPair(*writer_, query_, plan, processor, pair, kNoTimeout);
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

int CacheQuery::extract(const QueryPlan& plan, const std::vector<PathDrive>& pairs,
                        decltype(extractResults)& how) {
    std::vector<PathInfo> exclude = plan.localExclusions();
    PathHelper::removePathListDuplicate(exclude);
    const ExtractionRequest request{query_.getQuery(),         plan.mounts(), pairs, exclude,
                                    query_.getCaseSensitive(), timeout_};
    return how(store_, writer_, request);
}

void CacheQuery::explain(const PathDrive& pair, bool monitored, FsPlanStep& step) {
    if (!QueryPlan::isLocal(pair) || step.way == FsSearchWay::left) return;
    const Found found = find(pair);
    step.inCache = found.built != 0;
    step.ageSeconds = step.inCache && now_ > found.built ? now_ - found.built : 0;
    const bool served = monitored ? step.inCache : isYoung(found.built);
    if (served) {
        step.way = FsSearchWay::cached;
    } else if (!monitored && step.way == FsSearchWay::direct) {
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
