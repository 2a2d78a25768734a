#include "fscanner/engine/cache.h"

#include "fscanner/engine/answer_gaps.h"
#include "fscanner/engine/cache_build.h"
#include "fscanner/engine/cache_query.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/fsbuild.h"
#include "fscanner/engine/reports.h"
#include "fscanner/engine/status.h"
#include "fscanner/engine/watch_client.h"
#include "fscanner/fs/no_throw.h"

// The functions that hosts and plug-ins call. Here exceptions stop, a `Status` becomes the
// number for the host, and the status of a query decides whether the cache stays usable.

namespace fscanner {

namespace {

// Monitored queries and others keep a plan each.
KeptPlan& keptPlan(bool monitored) {
    static KeptPlan plans[2];
    return plans[monitored ? 1 : 0];
}

}  // namespace

// Operations that use the open files exclude each other. A writer, or another thread, that
// called back in the middle of one would move its cursors or unmap its files. A query may
// also run in the middle of a query of another cache: `CommandListShelter` keeps the
// criteria commands of that one.
template <class Result, class Body>
Result FS_Cache::operate(const char* where, Result failure, Result busy, Body body) {
    if (!store_) return failure;
    const CacheStore::Use use(*store_);
    if (!use.begun()) {
        debug("%s - called in the middle of another operation of this cache!\n", where);
        return busy;
    }
    const CommandListShelter shelter;
    return noThrow(where, failure, body);
}

FS_Cache::FS_Cache(const wchar_t* directoriesTableName, const wchar_t* filesTableName,
                   const wchar_t* cacheDirectory, bool monitor, bool compressed, bool cacheChecker)
    : monitor_(monitor) {
    const CommandListShelter shelter;
    store_ = noThrow("FS_Cache::FS_Cache", std::unique_ptr<CacheStore>(), [&] {
        return std::make_unique<CacheStore>(directoriesTableName, filesTableName, cacheDirectory,
                                            compressed, cacheChecker);
    });
}

FS_Cache::~FS_Cache() = default;

// What a query found and did not change stays for an object that may change the cache.
KeptChanges& FS_Cache::changes() {
    if (!changes_) changes_ = std::make_unique<KeptChanges>();
    return *changes_;
}

int FS_Cache::create(unsigned timeout, int disposition) {
    return codeOf(operate("FS_Cache::create", Status::failure, Status::lockTimedOut,
                          [&] { return store_->create(timeout, disposition); }));
}

int FS_Cache::lock() {
    if (!store_) return FS_CACHE_FAILURE;
    return codeOf(noThrow("FS_Cache::lock", Status::failure, [&] { return store_->lock(); }));
}

int FS_Cache::lock(int timeout) {
    if (!store_) return FS_CACHE_FAILURE;
    return codeOf(
        noThrow("FS_Cache::lock", Status::failure, [&] { return store_->lock(timeout); }));
}

int FS_Cache::lockShared(int timeout) {
    if (!store_) return FS_CACHE_FAILURE;
    return codeOf(noThrow("FS_Cache::lockShared", Status::failure,
                          [&] { return store_->lockShared(timeout); }));
}

void FS_Cache::unlock() {
    if (store_) store_->unlock();
}

// Runs `body` by a plan of the query. Without one, the mount table could not be read; the cache
// itself is sound.
template <class Body>
auto FS_Cache::runPlan(Form form, const FsQuery& query, Body body) {
    if (!store_->usable()) return Status::unusable;
    const std::shared_ptr<const QueryPlan> plan =
        noThrow("FS_Cache::executeQuery", [&] { return makePlan(form, query); });
    return plan ? runPlan(*plan, body) : Status::unusable;
}

// Afterwards the cache is marked as broken where the status asks for it, and the ID counter is
// written where directories were added.
template <class Body>
auto FS_Cache::runPlan(const QueryPlan& plan, Body body) {
    if (!store_->usable()) return Status::unusable;
    const unsigned counter = store_->directoriesIndex();
    Status status = noThrow("FS_Cache::executeQuery", Status::unusable, [&] {
        const Status result = body(plan);
        const bool finished = result != Status::unusable && result != Status::buildTimedOut;
        if (finished && store_->usable() && store_->directoriesIndex() != counter)
            tidyTrees(*store_, plan, sizeLimit_);
        return result;
    });
    if (store_->damaged()) status = Status::unusable;
    if (status == Status::unusable || status == Status::buildTimedOut) store_->markBroken();
    // Also after a time-out: the next session must not give the same IDs to other directories.
    const bool grew = store_->usable() && store_->directoriesIndex() != counter;
    if (grew && !store_->updateDirectoriesIDCounter()) {
        store_->markBroken();
        status = Status::unusable;
    }
    return status;
}

int FS_Cache::executeQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned timeout,
                           unsigned maxCacheAge) {
    return run(Form::plain, writer, query, timeout, maxCacheAge);
}

int FS_Cache::executeQueryEx(FsResultSetWriter& writer, const FsQuery& query, unsigned timeout,
                             unsigned maxCacheAge) {
    return run(Form::kept, writer, query, timeout, maxCacheAge);
}

int FS_Cache::run(Form form, FsResultSetWriter& writer, const FsQuery& query, unsigned timeout,
                  unsigned maxCacheAge) {
    const bool kept = form == Form::kept;
    CheckedWriter checked(writer);
    const auto answer = [&](const QueryPlan& plan) {
        CacheQuery run(*store_, query, rules(maxCacheAge), &checked, timeout);
        if (store_->readOnly() && !monitor_) {
            const Status status = run.readiness(plan, changes());
            if (status != Status::success) return status;
        }
        const AnswerGaps gaps(query, plan);
        const char* const name = kept ? "executeQueryCacheOnlyEx" : "executeQueryCacheOnly";
        const Status status =
            gaps.resultOf(monitor_ ? run.monitored(plan) : run.cacheOnly(plan, name));
        // The next query looks at the disk itself, and asks a watcher anew.
        if (verify_) store_->forgetRefreshed();
        watcher_.reset();
        return status;
    };
    return checked.codeOf(operate(kept ? "FS_Cache::executeQueryEx" : "FS_Cache::executeQuery",
                                  Status::unusable, Status::lockTimedOut,
                                  [&] { return runPlan(form, query, answer); }));
}

TreeRules FS_Cache::rules(unsigned maxCacheAge) {
    const bool verify = verify_ && !monitor_;
    if (verify && !watcher_)
        watcher_ = std::make_unique<WatchClient>(store_->directory(), store_->directoriesName());
    return {maxCacheAge, verify, watcher_.get()};
}

int FS_Cache::refresh(const FsQuery& query, unsigned timeout, unsigned maxCacheAge) {
    const auto body = [&](const QueryPlan& plan) {
        if (monitor_) return Status::success;
        if (store_->readOnly()) return Status::needsChange;
        return CacheQuery(*store_, query, rules(maxCacheAge), nullptr, timeout)
            .refreshTrees(plan, plan.pairs(), changes());
    };
    return codeOf(operate("FS_Cache::refresh", Status::unusable, Status::lockTimedOut,
                          [&] { return runPlan(Form::plain, query, body); }));
}

int FS_Cache::keepCurrent(const FsQuery& query, const QueryPlan& plan,
                          const std::vector<PathDrive>& pairs, ChangeSource& changes) {
    const auto body = [&](const QueryPlan&) {
        KeptChanges none;
        return CacheQuery(*store_, query, {0, true, &changes}, nullptr, kNoTimeout)
            .refreshTrees(plan, pairs, none);
    };
    return codeOf(operate("FS_Cache::keepCurrent", Status::unusable, Status::lockTimedOut,
                          [&] { return runPlan(plan, body); }));
}

int FS_Cache::share(int timeout) {
    return codeOf(operate("FS_Cache::share", Status::failure, Status::lockTimedOut,
                          [&] { return store_->share(timeout); }));
}

// The plan that the process keeps, or a new one. Null when the mount table cannot be read.
std::shared_ptr<const QueryPlan> FS_Cache::makePlan(Form form, const FsQuery& query) const {
    if (form == Form::kept) return keptPlan(monitor_).refresh(query);
    const auto fresh = std::make_shared<QueryPlan>();
    return fresh->make(query) ? fresh : nullptr;
}

bool FS_Cache::explain(const FsQuery& query, unsigned maxCacheAge, FsQueryReport& report) {
    return operate("FS_Cache::explain", false, false, [&] {
        if (!store_->usable()) return false;
        const std::shared_ptr<const QueryPlan> plan = makePlan(Form::plain, query);
        if (!plan) return false;
        report = FsQueryReport();
        describePlan(*plan, query, store_->files().mayHoldPatterns(), report);
        CacheQuery lookup(*store_, query, rules(maxCacheAge));
        for (std::size_t i = 0; i < report.steps.size(); ++i)
            lookup.explain(*plan, plan->pairs()[i], monitor_, report.steps[i]);
        return true;
    });
}

bool FS_Cache::report(FsCacheReport& report) {
    return operate("FS_Cache::report", false, false, [&] {
        if (!store_->usable()) return false;
        report = FsCacheReport();
        return reportCache(*store_, report);
    });
}

bool FS_Cache::check(FsCacheCheck& result) {
    return operate("FS_Cache::check", false, false, [&] { return store_->check(result); });
}

int FS_Cache::forget(const wchar_t* path, bool& found) {
    found = false;
    const auto body = [&] {
        if (!path || !store_->usable()) return Status::unusable;
        if (store_->readOnly()) return Status::needsChange;
        if (forgetTree(*store_, path, found)) return Status::success;
        store_->markBroken();
        return Status::unusable;
    };
    return codeOf(operate("FS_Cache::forget", Status::unusable, Status::lockTimedOut, body));
}

void FS_Cache::setVerification(bool verify) {
    verify_ = verify;
}

void FS_Cache::continueFrom(FS_Cache& reader) {
    operate("FS_Cache::continueFrom", false, false, [&] {
        watcher_ = std::move(reader.watcher_);
        const bool same = reader.changes_ && reader.changes_->version && !store_->readOnly() &&
                          store_->version() == reader.changes_->version;
        if (same) changes_ = std::move(reader.changes_);
        return same;
    });
}

void FS_Cache::setSizeLimit(unsigned long long bytes) {
    sizeLimit_ = bytes;
}

int FS_Cache::startMonitor(FsMonitor*) {
    return 0;
}

int FS_Cache::stopMonitor() {
    return 0;
}

bool FS_Cache::close() {
    if (!store_) return true;
    if (monitor_) stopMonitor();
    return operate("FS_Cache::close", false, false, [&] { return store_->close(); });
}

bool FS_Cache::compact() {
    return operate("FS_Cache::compact", false, false, [&] { return store_->compact(); });
}

bool FS_Cache::remove() {
    return operate("FS_Cache::remove", false, false, [&] { return store_->remove(); });
}

}  // namespace fscanner
