#include <gmock/gmock.h>
#include <sys/wait.h>

#include "engine/cache_user.h"
#include "fscanner/common/heap_string.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_explain.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "support/child_process.h"

namespace fscanner {
namespace {

using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

class CacheTest : public testing::Test {
protected:
    using Names = std::vector<std::string>;

    CacheTest() {
        tree.file("top");
        tree.file("d/in", 5);
        tree.file("d/e/deep");
    }
    FsQuery& everything(const std::string& below = "") {
        query.clearIncludePaths();
        query.addIncludePath(tree.wide(below).c_str(), true);
        return query;
    }
    std::vector<std::string> found(const CacheUser& user, unsigned age = kDay) {
        CollectingWriter writer;
        EXPECT_EQ(user.query(writer, query, age), 0);
        return writer.sorted();
    }
    std::vector<std::string> scanned() const {
        CollectingWriter writer;
        EXPECT_EQ(fsScanQuery(writer, query, kMinute), 0);
        return writer.sorted();
    }
    Names paths(Names names) const {
        for (std::string& name : names) name = tree.path(name);
        std::sort(names.begin(), names.end());
        return names;
    }

    TempTree tree;
    CacheUser cache;
    FsQuery query;
};

TEST_F(CacheTest, AnswersFromTheCacheUntilItIsOld) {
    everything();
    EXPECT_EQ(found(cache), paths({"top", "d/in", "d/e/deep"}));
    tree.file("new");
    EXPECT_EQ(found(cache), paths({"top", "d/in", "d/e/deep"}));
    // A limit in the future makes every tree old.
    EXPECT_EQ(found(cache, 0U - 10), paths({"top", "d/in", "d/e/deep", "new"}));
}

TEST_F(CacheTest, RebuildingASubtreeLeavesTheRest) {
    everything();
    found(cache);
    tree.file("d/new");
    tree.file("elsewhere");
    everything("d");
    EXPECT_EQ(found(cache, 0U - 10), paths({"d/in", "d/e/deep", "d/new"}));
    everything();
    EXPECT_EQ(found(cache), paths({"top", "d/in", "d/e/deep", "d/new"}));
}

TEST_F(CacheTest, ATreeThatIsGoneIsForgotten) {
    everything("d");
    found(cache);
    std::filesystem::remove_all(tree.path("d"));
    EXPECT_THAT(found(cache, 0U - 10), IsEmpty());
    EXPECT_THAT(found(cache), IsEmpty());
}

TEST_F(CacheTest, FilesThatCannotBeDecidedReachTheObserver) {
    class Undecided : public FsScanObserver {
    public:
        void undecided(const FsFileInfo& file) override {
            names.push_back(toMultibyte(std::wstring(file.getPath()) + file.getName()));
        }
        std::vector<std::string> names;
    } observer;
    tree.file("d/a*");
    tree.file("out/b*");
    everything("d");
    for (const wchar_t* criteria :
         {L"[FILENAME]==\"d*\"", L"path([PATHID],[FILENAME])==\"*/d*p\""}) {
        query.setQuery(criteria);
        for (const bool directly : {true, false}) {
            observer.names.clear();
            fsSetScanObserver(&observer);
            EXPECT_EQ(directly ? scanned() : found(cache), paths({"d/e/deep"}));
            fsSetScanObserver(nullptr);
            EXPECT_EQ(observer.names, paths({"d/a*"}));
        }
    }
}

/// Running `file` over a cache takes its time: whoever watches must hear, and may end it.
TEST_F(CacheTest, CommandsOverACacheCanBeStopped) {
    class Stopper : public FsScanObserver {
    public:
        bool progress(const FsScanProgress& at) override {
            files = at.files;
            return false;
        }
        unsigned long long files = 0;
    } observer;
    for (int i = 0; i < 300; ++i) tree.file("many/" + std::to_string(i) + "/f");
    everything();
    found(cache);
    query.setQuery(L"type(path([PATHID],[FILENAME]),\"PDF\")==1");
    fsSetScanObserver(&observer);
    CollectingWriter writer;
    EXPECT_EQ(cache.query(writer, query, kDay), FS_CACHE_QUERY_TIMED_OUT);
    fsSetScanObserver(nullptr);
    EXPECT_GT(observer.files, 0u);
    EXPECT_LT(observer.files, 300u);
    EXPECT_FALSE(cache.isMarked());
}

TEST_F(CacheTest, HoldsWholeTreesWhateverTheQueryLeavesOut) {
    for (const bool recursive : {false, true}) {
        const CacheUser fresh;
        query.clearIncludePaths();
        query.addIncludePath(tree.wide().c_str(), recursive);
        if (recursive) query.addExcludePath(tree.wide("d").c_str(), true);
        EXPECT_EQ(found(fresh), paths({"top"}));
        tree.file("d/new");
        query.clearExcludePaths();
        everything();
        EXPECT_EQ(found(fresh), paths({"top", "d/in", "d/e/deep"}));
        std::filesystem::remove(tree.path("d/new"));
    }
}

TEST_F(CacheTest, TimeOuts) {
    everything();
    CollectingWriter writer;
    EXPECT_EQ(cache.query(writer, query, kDay, 0), FS_CACHE_BUILD_TIMED_OUT);
    EXPECT_TRUE(cache.isMarked());
    EXPECT_EQ(found(cache), paths({"top", "d/in", "d/e/deep"}));
    EXPECT_EQ(cache.query(writer, query, kDay, 0), FS_CACHE_QUERY_TIMED_OUT);
    // The time is looked at before the place: a match outside is enough.
    everything("d/e").setQuery(L"[FILENAME]==\"top\"");
    EXPECT_EQ(cache.query(writer, query, kDay, 0), FS_CACHE_QUERY_TIMED_OUT);
    query.setQuery(L"[FILENAME]==\"none\"");
    EXPECT_EQ(cache.query(writer, query, kDay, 0), 0);
    // Where nothing is to be extracted, no time is needed.
    query.clearIncludePaths();
    query.addIncludePath(L"$other::/", true);
    query.setQuery(L"");
    EXPECT_EQ(cache.query(writer, query, kDay, 0), 0);
    EXPECT_THAT(writer.paths, IsEmpty());
    EXPECT_FALSE(cache.isMarked());
}

TEST_F(CacheTest, CreationAndItsCodes) {
    auto first = cache.make();
    CollectingWriter writer;
    EXPECT_EQ(first->executeQuery(writer, everything(), kMinute, kDay), FS_CACHE_UNUSABLE);
    EXPECT_EQ(first->create(0, FS_CACHE_OPEN), FS_CACHE_FAILURE);
    EXPECT_EQ(cache.make()->create(0, 3), FS_CACHE_FAILURE);
    auto second = cache.make();
    EXPECT_EQ(second->create(0, FS_CACHE_OPEN_ALWAYS), 0);
    EXPECT_TRUE(cache.isMarked());
    EXPECT_EQ(cache.counter(), std::string(4, '\0'));
    EXPECT_EQ(second->create(0, FS_CACHE_OPEN), FS_CACHE_ALREADY_OPENED);
    EXPECT_TRUE(second->close());
    EXPECT_FALSE(cache.isMarked());
    EXPECT_EQ(second->create(0, FS_CACHE_OPEN), FS_CACHE_ALREADY_OPENED);
    EXPECT_EQ(second->executeQuery(writer, query, kMinute, kDay), FS_CACHE_UNUSABLE);
    EXPECT_EQ(cache.make()->create(0, FS_CACHE_OPEN), 0);
    FS_Cache unmarked(L"u", L"v", cache.directory().wide().c_str(), false, false, false);
    EXPECT_EQ(unmarked.create(0, FS_CACHE_CREATE), 0);
    EXPECT_FALSE(std::filesystem::exists(cache.directory().path("u.cuflag")));
    FS_Cache nowhere(L"d", L"f", L"/nonexistent/cache", false, false, true);
    EXPECT_EQ(nowhere.create(0, FS_CACHE_CREATE), FS_CACHE_FAILURE);
    EXPECT_EQ(nowhere.lock(), FS_CACHE_FAILURE);
    FS_Cache unnamed(nullptr, L"f", L"/tmp", false, false, true);
    EXPECT_EQ(unnamed.create(0, FS_CACHE_CREATE), FS_CACHE_FAILURE);
}

TEST_F(CacheTest, TheCounterIsKeptAndBounded) {
    everything();
    found(cache);
    const std::string after = cache.counter();
    // One ID for each component of the tree's path, the root, and the two directories.
    const std::string root = tree.path();
    const auto depth = std::count(root.begin(), root.end(), '/') + 1;
    EXPECT_EQ(after, std::string(1, static_cast<char>(depth + 2)) + std::string(3, '\0'));
    const std::string counter = cache.directory().path("dirs.counter");
    writeWholeFile(counter, "\x34\x33\x33\xf3");
    EXPECT_EQ(cache.make()->create(0, FS_CACHE_OPEN), FS_CACHE_FAILURE);
    writeWholeFile(counter, "\x33\x33\x33\xf3");
    EXPECT_EQ(cache.make()->create(0, FS_CACHE_OPEN), 0);
}

TEST_F(CacheTest, ADeadProcessCostsOneRebuild) {
    everything();
    found(cache);
    inChild([&] {
        cache.open().release();
        return 0;
    });
    EXPECT_TRUE(cache.isMarked());
    EXPECT_EQ(cache.make()->create(0, FS_CACHE_OPEN), FS_CACHE_FAILURE);
    tree.file("new");
    EXPECT_EQ(found(cache), paths({"top", "d/in", "d/e/deep", "new"}));
    tree.file("newer");
    EXPECT_EQ(found(cache), paths({"top", "d/in", "d/e/deep", "new"}));
}

// The lock was given back with the first closing: the mark may be another's by then.
TEST_F(CacheTest, OnlyAnOpenCacheTakesItsMarkAway) {
    auto first = cache.open();
    EXPECT_TRUE(first->close());
    const auto crashed = cache.open();
    EXPECT_TRUE(first->close());
    EXPECT_TRUE(cache.make()->close());
    EXPECT_TRUE(cache.isMarked());
}

TEST_F(CacheTest, CompactionNeedsAClosedCacheAndKeepsTheAnswers) {
    everything();
    found(cache);
    auto open = cache.open();
    EXPECT_FALSE(open->compact());
    EXPECT_TRUE(open->close());
    EXPECT_TRUE(cache.isMarked());
    for (int i = 0; i < 5; ++i) found(cache, 0U - 10);
    // The removed records of five rebuildings would fill several times this.
    EXPECT_LT(std::filesystem::file_size(cache.directory().path("files.pxx")), 6 * 4U);
    EXPECT_EQ(found(cache), paths({"top", "d/in", "d/e/deep"}));
    auto closed = cache.open();
    closed->close();
    EXPECT_TRUE(closed->remove());
    EXPECT_FALSE(std::filesystem::exists(cache.directory().path("dirs.dat")));
    EXPECT_FALSE(std::filesystem::exists(cache.directory().path("dirs.counter")));
}

TEST_F(CacheTest, DamagedFilesAreRebuiltOrACode) {
    everything();
    const auto right = found(cache);
    for (const char* name : {"files.dat", "files.pxx", "dirs.dat", "dirs.pxx", "dirs_ID.idx",
                             "dirs_PATHNAME.idx", "dirs_idx.dat", "dirs.counter"}) {
        found(cache);
        std::filesystem::resize_file(cache.directory().path(name), 3);
        CollectingWriter writer;
        const int status = cache.query(writer, query);
        if (status == 0) {
            EXPECT_EQ(writer.sorted(), right) << name;
        }
        EXPECT_EQ(found(cache), right) << name;
    }
}

TEST_F(CacheTest, OneWriterAtATime) {
    auto holder = cache.make();
    ASSERT_EQ(holder->lock(), 0);
    const auto other = [&](int limit) {
        return inChild([&] { return cache.make()->lock(limit) == FS_CACHE_LOCK_TIMED_OUT; });
    };
    EXPECT_EQ(other(150), 1);
    // The lock file is unlinked by whoever is done with it: that must let nobody in.
    std::filesystem::remove("/tmp/" + toMultibyte(accessMutexName(cache.directory().wide())));
    EXPECT_EQ(other(150), 1);
    // A limit of 0 never succeeds, also when nobody holds the lock.
    holder->unlock();
    EXPECT_EQ(other(0), 1);
    EXPECT_EQ(inChild([&] { return cache.make()->lock(1000) == 0; }), 1);
}

TEST_F(CacheTest, ReportsWhatItHoldsAndWhatAQueryWouldDo) {
    everything("d");
    tree.file("gone/x");
    query.addIncludePath(tree.wide("gone").c_str(), true);
    query.addIncludePath((L"$local::*:" + tree.wide("d/e")).c_str(), true);
    query.addExcludePath(tree.wide("d/e").c_str(), true);
    query.addIncludePath(L"$other::/nowhere", true);
    query.setQuery(L"[FILENAME]==\"in\"");
    FsQueryReport plan;
    ASSERT_TRUE(fsExplainQuery(query, plan));
    ASSERT_EQ(plan.steps.size(), 2U);
    EXPECT_EQ(plan.steps[0].way, FsSearchWay::direct);
    EXPECT_EQ(plan.steps[0].exclusions, std::vector{tree.wide("d/e")});
    EXPECT_EQ(plan.unresolved, std::vector<std::wstring>{L"$other::/nowhere"});
    EXPECT_EQ(plan.criteria.indexField, L"FILENAME");

    auto open = cache.open();
    ASSERT_TRUE(open->explain(query, kDay, plan));
    EXPECT_EQ(plan.steps[0].way, FsSearchWay::rebuilt);
    EXPECT_FALSE(plan.steps[0].inCache);
    CollectingWriter writer;
    ASSERT_EQ(open->executeQuery(writer, query, kMinute, kDay), 0);
    std::filesystem::remove_all(tree.path("gone"));
    ASSERT_TRUE(open->explain(query, kDay, plan));
    EXPECT_EQ(plan.steps[0].way, FsSearchWay::cached);
    EXPECT_EQ(plan.steps[1].way, FsSearchWay::cached);
    ASSERT_TRUE(open->explain(query, 0U - 10, plan));
    EXPECT_TRUE(plan.steps[0].inCache);
    EXPECT_EQ(plan.steps[0].way, FsSearchWay::rebuilt);
    EXPECT_EQ(plan.steps[1].way, FsSearchWay::noDirectory);

    FsCacheReport report;
    ASSERT_TRUE(open->report(report));
    ASSERT_EQ(report.trees.size(), 2U);
    EXPECT_EQ(report.trees[0].path, tree.wide("d"));
    EXPECT_EQ(report.trees[0].files, 2U);
    EXPECT_EQ(report.trees[0].directories, 2U);
    EXPECT_EQ(report.trees[1].files, 1U);
    EXPECT_EQ(report.removedRecords, 0U);
    // The ancestors' records are no trees, but records they are.
    EXPECT_GT(report.records, 6U);
    open->close();
    EXPECT_FALSE(open->report(report));
}

TEST(CacheNames, MutexAndFiles) {
    EXPECT_EQ(accessMutexName(L"/var/tmp/c:x"), L"_var_tmp_c_x_c_mutex");
    const auto name = [](const wchar_t* d, const wchar_t* n, const wchar_t* s) {
        const HeapText text(getCacheFileName(d, n, s));
        return text ? std::wstring(text.get()) : L"null";
    };
    EXPECT_EQ(name(L"/c", L"t", L".counter"), L"/c/t.counter");
    EXPECT_EQ(name(L"/c/", L"t", L".counter"), L"/c/t.counter");
    EXPECT_EQ(name(nullptr, L"t", L".counter"), L"null");
}

TEST_F(CacheTest, MonitoredQueriesTakeWhatIsThereAndScanTheRest) {
    const CacheUser monitored(false, true);
    everything();
    EXPECT_EQ(found(monitored), paths({"top", "d/in", "d/e/deep"}));
    tree.file("new");
    EXPECT_EQ(found(monitored), paths({"top", "d/in", "d/e/deep", "new"}));

    // A tree that another, unmonitored cache object has built is used at any age.
    FS_Cache builder(L"dirs", L"files", monitored.directory().wide().c_str(), false, false, true);
    ASSERT_EQ(builder.create(0, FS_CACHE_OPEN), 0);
    CollectingWriter writer;
    EXPECT_EQ(builder.executeQuery(writer, query, kMinute, kDay), 0);
    builder.close();
    tree.file("newer");
    EXPECT_EQ(found(monitored, 0U - 10), paths({"top", "d/in", "d/e/deep", "new"}));
}

TEST_F(CacheTest, FourProcessesShareACache) {
    // Whole and part, from the cache and rebuilt, in another order in each process.
    const auto wrongAnswers = [&](int process) {
        int wrong = 0;
        for (int i = 0; i < 100; ++i) {
            const bool part = (i + process) % 3 == 0;
            everything(part ? "d" : "");
            query.setQuery(i % 2 == 0 ? L"[FILENAME]==\"*e*\"" : L"");
            auto right = paths(i % 2 == 0 ? Names{"d/e/deep"} : Names{"d/in", "d/e/deep", "top"});
            if (part) std::erase(right, tree.path("top"));
            CollectingWriter writer;
            const int status = cache.query(writer, query, (i + process) % 5 == 0 ? 0U - 10 : kDay);
            if (status != 0 || writer.sorted() != right) ++wrong;
        }
        return wrong;
    };
    std::vector<pid_t> children;
    for (int process = 0; process < 4; ++process) {
        const pid_t child = fork();
        if (child == 0) _exit(wrongAnswers(process));
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
}

TEST_F(CacheTest, TheLogReadsLikeTheRoadOfAQuery) {
    everything("d");
    const std::string log = cache.directory().path("log");
    ASSERT_TRUE(startDebug(log.c_str()));
    found(cache);
    found(cache);
    stopDebug();
    const std::string text = readWholeFile(log);
    std::size_t at = 0;
    const std::string d = tree.path("d");
    for (const std::string& line :
         {std::string("FS_Cache::create - creationDisposition is FS_CACHE_OPEN_ALWAYS"),
          std::string("FS_Cache::openCache() - cache corrupted or directoriesIndex invalid"),
          std::string("FS_Cache::createFilesTable - exit. [retValue is 1]"),
          "FS_Cache::executeQueryCacheOnly - scanning [mdLocalDriveGroup] [" + d + "] path...",
          "FS_Cache::executeQueryCacheOnly - file system access on [" + d + "]",
          std::string("FS_Cache::executeQueryCacheOnly - tree builded!"),
          std::string("FS_Cache::endCacheUpdate - end cache update: "),
          std::string("FS_Cache::unlock - accessMutex RELEASED!"),
          std::string("FS_Cache::openCache - cache opened!"),
          std::string("FS_Cache::executeQueryCacheOnly - retrieving data from cache...")}) {
        const std::size_t next = text.find(line, at);
        EXPECT_NE(next, std::string::npos) << line;
        if (next != std::string::npos) at = next;
    }
}

}  // namespace
}  // namespace fscanner
