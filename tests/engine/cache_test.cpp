
#include <ctime>

#include "engine/cache_user.h"
#include "fscanner/common/time.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_explain.h"
#include "support/listener.h"

namespace fscanner {
namespace {

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
    Names paths(Names names) const {
        for (std::string& name : names) name = tree.path(name);
        std::sort(names.begin(), names.end());
        return names;
    }

    TempTree tree;
    CacheUser cache;
    FsQuery query;
};

// The clock: the time of day may be set, and is no measure of how long something took.
timeval dayOf2033() {
    return {2'000'000'000, 0};
}
timeval hourBefore() {
    return {2'000'000'000 - 3600, 0};
}
timeval dayEarlier() {
    static timeval now = dayOf2033();
    now.tv_sec -= kDay;
    return now;
}
timeval dayLater() {
    static timeval now = dayOf2033();
    now.tv_sec += kDay;
    return now;
}
timeval standing() {
    return {1000, 0};
}

TEST_F(CacheTest, TreesOfTheFutureAreOld) {
    everything();
    setClockSource(dayOf2033);
    EXPECT_EQ(found(cache).size(), 3u);
    tree.file("new");
    EXPECT_EQ(found(cache, 0).size(), 3u) << "the second goes on";
    EXPECT_EQ(found(cache, FS_CACHE_REBUILD).size(), 4u);
    tree.file("later");
    setClockSource(hourBefore);
    EXPECT_EQ(found(cache).size(), 5u) << "the clock was set back";
    setClockSource(nullptr);
}

TEST_F(CacheTest, AClockThatIsSetEndsNoSearch) {
    everything();
    for (const ClockSource stepping : {dayEarlier, dayLater}) {
        setClockSource(stepping, standing);
        CollectingWriter direct;
        EXPECT_EQ(fsScanQuery(direct, query, kMinute), 0);
        EXPECT_EQ(direct.paths.size(), 3u);
        EXPECT_EQ(found(cache).size(), 3u);
    }
    setClockSource(nullptr);
    const unsigned before = getTickCount();
    EXPECT_LT(getTickCount() - before, kMinute) << "ticks do not go back";
}

// Each look at the clock takes a millisecond.
template <bool fromToday>
timeval ticking() {
    static timeval now = {fromToday ? std::time(nullptr) : 1000, 0};
    now.tv_usec += 1000;
    return now;
}

TEST_F(CacheTest, TimeRunsOutWithinADirectory) {
    for (int i = 0; i < 1000; ++i) tree.file("many/" + std::to_string(i));
    everything("many");
    CollectingWriter writer;
    setClockSource(nullptr, ticking<false>);
    EXPECT_EQ(fsScanQuery(writer, query, 5), FS_CACHE_QUERY_TIMED_OUT);
    EXPECT_GT(writer.paths.size(), 0u);
    EXPECT_LT(writer.paths.size(), 1000u);
    EXPECT_EQ(cache.query(writer, query, kDay, 5), FS_CACHE_BUILD_TIMED_OUT);
    EXPECT_EQ(cache.query(writer, query, kDay, kMinute), 0);
    query.setQuery(L"path([PATHID],[FILENAME])==\"none\"");
    EXPECT_EQ(cache.query(writer, query, kDay, 50), FS_CACHE_QUERY_TIMED_OUT);
    setClockSource(nullptr);
}

/// Who reads a tree anew can say how far it is.
TEST_F(CacheTest, TheSizeOfTheOldTreeIsToldWhenItIsReadAnew) {
    for (int i = 0; i < 1600; ++i)
        tree.file("many/" + std::to_string(i % 40) + "/" + std::to_string(i) + "/f");
    everything();
    const Listener heard;
    found(cache);
    EXPECT_GT(heard.questions, 0);
    EXPECT_EQ(heard.expected, 0U);
    found(cache, FS_CACHE_REBUILD);
    EXPECT_EQ(heard.expected, 1600U + 40 + 1 + 3);
}

/// Running `file` over a cache takes time: the observer must be called, and may stop it.
TEST_F(CacheTest, CommandsOverACacheCanBeStopped) {
    for (int i = 0; i < 300; ++i) tree.file("many/" + std::to_string(i));
    everything();
    found(cache);
    query.setQuery(L"type(path([PATHID],[FILENAME]),\"PDF\")==1");
    setClockSource(ticking<true>);
    const Listener stopping(1);
    CollectingWriter writer;
    EXPECT_EQ(cache.query(writer, query, kDay), FS_CACHE_QUERY_TIMED_OUT);
    setClockSource(nullptr);
    EXPECT_GT(stopping.files, 0u);
    EXPECT_LT(stopping.files, 300u);
    EXPECT_FALSE(cache.isMarked());
}

TEST_F(CacheTest, TimeOuts) {
    everything();
    CollectingWriter writer;
    EXPECT_EQ(cache.query(writer, query, kDay, 0), FS_CACHE_BUILD_TIMED_OUT);
    EXPECT_TRUE(cache.isMarked());
    found(cache);
    EXPECT_EQ(cache.query(writer, query, kDay, 0), FS_CACHE_QUERY_TIMED_OUT);
    // The time is checked before the place, so a match outside suffices.
    everything("d/e").setQuery(L"[FILENAME]==\"top\"");
    EXPECT_EQ(cache.query(writer, query, kDay, 0), FS_CACHE_QUERY_TIMED_OUT);
    query.setQuery(L"[FILENAME]==\"none\"");
    EXPECT_EQ(cache.query(writer, query, kDay, 0), 0);
    EXPECT_FALSE(cache.isMarked());
}

TEST_F(CacheTest, CreationAndItsCodes) {
    CollectingWriter writer;
    EXPECT_EQ(cache.make()->executeQuery(writer, everything(), kMinute, kDay), FS_CACHE_UNUSABLE);
    EXPECT_EQ(cache.make()->create(0, FS_CACHE_OPEN), FS_CACHE_FAILURE);
    EXPECT_EQ(cache.make()->create(0, 3), FS_CACHE_FAILURE);
    const auto second = cache.open();
    EXPECT_TRUE(cache.isMarked());
    EXPECT_EQ(cache.make()->create(0, FS_CACHE_OPEN), FS_CACHE_FAILURE);
    EXPECT_EQ(second->create(0, FS_CACHE_OPEN), FS_CACHE_ALREADY_OPENED);
    EXPECT_TRUE(second->close());
    EXPECT_FALSE(cache.isMarked());
    EXPECT_EQ(second->create(0, FS_CACHE_OPEN), FS_CACHE_ALREADY_OPENED);
    EXPECT_EQ(second->executeQuery(writer, query, kMinute, kDay), FS_CACHE_UNUSABLE);
    // The counter has a limit.
    cache.setCounter("\x34\x33\x33\xf3");
    EXPECT_EQ(cache.make()->create(0, FS_CACHE_OPEN), FS_CACHE_FAILURE);
    cache.setCounter("\x33\x33\x33\xf3");
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

TEST_F(CacheTest, IdsGoBeyondTheSignedRange) {
    everything();
    found(cache);
    for (const unsigned last : {0x7fU, 0x80U, 0xf2U}) {
        cache.setCounter(std::string("\xfe\xff\xff") + static_cast<char>(last));
        const std::size_t before = found(cache, FS_CACHE_REBUILD).size();
        EXPECT_GE(static_cast<unsigned char>(cache.counter().back()), last) << "it was made anew";
        tree.file("later" + std::to_string(last));
        EXPECT_EQ(found(cache).size(), before) << "answered from the cache";
        EXPECT_EQ(found(cache, FS_CACHE_REBUILD).size(), before + 1);
        EXPECT_GE(static_cast<unsigned char>(cache.counter().back()), last) << "it was made anew";
        EXPECT_FALSE(cache.isMarked());
    }
}

// The lock was given back at the first closing: then the mark may belong to another process.
TEST_F(CacheTest, OnlyAClosedCacheIsCompactedOrRemovedAndOnlyAnOpenOneTakesItsMarkAway) {
    everything();
    for (int i = 0; i < 6; ++i) found(cache, kAllOld);
    // The removed records of five rebuilds would fill several times this.
    EXPECT_LT(std::filesystem::file_size(cache.directory().path("files.pxx")), 6 * 4U);
    const auto first = cache.open();
    EXPECT_FALSE(first->compact());
    EXPECT_FALSE(first->remove());
    EXPECT_TRUE(first->close());
    const auto crashed = cache.open();
    EXPECT_TRUE(first->close());
    EXPECT_TRUE(cache.make()->close());
    EXPECT_TRUE(cache.isMarked());
    EXPECT_TRUE(first->remove());
    EXPECT_FALSE(std::filesystem::exists(cache.directory().path("dirs.counter")));
}

// ---- What goes from a cache -------------------------------------------------

std::vector<std::string> treesOf(const CacheUser& user) {
    const auto open = user.open();
    FsCacheReport report;
    EXPECT_TRUE(open->report(report));
    open->close();
    std::vector<std::string> trees;
    for (const FsCachedTree& tree : report.trees) trees.push_back(toMultibyte(tree.path));
    return trees;
}

// Trees above a forgotten tree lack it, and trees in it are forgotten with it.
TEST_F(CacheTest, AForgottenTreeIsReadAgain) {
    const struct {
        const char *built, *forgotten, *asked;
        bool known, readAgain;
        Names left;  // trees, before any search
    } table[] = {
        {"", "", "", true, true, {}},         {"", "d", "", true, true, {"o"}},
        {"", "d", "d", true, true, {"o"}},    {"", "d/e", "o", true, false, {"o"}},
        {"d", "", "d", true, true, {}},       {"d", "d/e", "d", true, true, {}},
        {"d", "o", "d", false, false, {"d"}}, {"d", "d/e/deep", "d", false, false, {"d"}},
        {"d/e", "d", "d/e", true, true, {}},
    };
    for (const auto& [built, forgotten, asked, known, readAgain, left] : table) {
        SCOPED_TRACE(std::string(built) + " without " + forgotten);
        const CacheUser user;
        tree.directory("o");
        const std::string fresh = *asked ? std::string(asked) + "/new" : "new";
        std::filesystem::remove(tree.path(fresh));
        everything(built);
        found(user);
        const auto open = user.open();
        bool had = !known;
        EXPECT_EQ(open->forget(tree.wide(forgotten).c_str(), had), 0);
        EXPECT_EQ(had, known);
        EXPECT_TRUE(open->close());
        EXPECT_TRUE(open->compact());
        EXPECT_FALSE(user.isMarked());
        const std::vector<std::string> trees = treesOf(user);
        EXPECT_EQ(trees.empty(), left.empty());
        for (const std::string& name : left) EXPECT_THAT(trees, testing::Contains(tree.path(name)));
        tree.file(fresh);
        everything(asked);
        const auto names = found(user);
        const auto isNew = [&](const std::string& name) { return name.ends_with("/new"); };
        EXPECT_EQ(std::any_of(names.begin(), names.end(), isNew), readAgain);
        EXPECT_EQ(names, found(user));
    }
    bool had = true;
    const auto closed = cache.make();
    EXPECT_EQ(closed->forget(L"/", had), FS_CACHE_UNUSABLE);
    EXPECT_FALSE(had);
    everything();
    found(cache);
    const auto shared = cache.make();
    EXPECT_EQ(shared->lockShared(1000), 0);
    EXPECT_EQ(shared->create(0, FS_CACHE_OPEN), 0);
    EXPECT_EQ(shared->forget(tree.wide().c_str(), had), FS_CACHE_NEEDS_CHANGE);
    shared->close();
    shared->unlock();
    EXPECT_FALSE(cache.isMarked());
}

TEST_F(CacheTest, TreesWhoseDirectoriesAreGoneGoAtTheNextChange) {
    for (const char* name : {"gone/x/f", "moved/f", "linked/f", "a/file/f", "stays/f"})
        tree.file(name);
    for (const char* name : {"gone/x", "moved", "linked", "a/file", "stays", "d"}) {
        everything(name);
        found(cache);
    }
    std::filesystem::remove_all(tree.path("gone"));
    std::filesystem::rename(tree.path("moved"), tree.path("away"));
    std::filesystem::remove_all(tree.path("linked"));
    tree.link("stays", "linked");
    std::filesystem::remove_all(tree.path("a/file"));
    tree.file("a/file");
    everything("d");
    EXPECT_EQ(found(cache).size(), 2U);
    EXPECT_EQ(treesOf(cache).size(), 6U) << "nothing was changed";
    EXPECT_EQ(found(cache, FS_CACHE_REBUILD).size(), 2U);
    EXPECT_EQ(treesOf(cache), paths({"d", "stays"}));
    // The directories that held them are gone, too. All share the root.
    const auto open = cache.open();
    FsCacheReport report;
    ASSERT_TRUE(open->report(report));
    EXPECT_EQ(report.trees.size(), 2U);
    bool had = true;
    for (const char* name : {"gone", "a"}) {
        EXPECT_EQ(open->forget(tree.wide(name).c_str(), had), 0);
        EXPECT_FALSE(had) << name;
    }
    open->close();
}

TEST_F(CacheTest, ALimitCostsTheOldestTrees) {
    for (int of = 0; of < 4; ++of)
        for (int i = 0; i < 3000; ++i)
            tree.file("t" + std::to_string(of) + "/" + std::string(60, 'n') + std::to_string(i));
    static timeval now;
    now = dayOf2033();
    setClockSource([]() { return now; });
    const auto build = [&](const std::string& name) {
        ++now.tv_sec;
        everything(name);
        return found(cache, FS_CACHE_REBUILD).size();
    };
    build("t2");
    constexpr unsigned slack = 1 << 17;  // files grow in steps
    const auto one = cache.bytes() + slack;
    for (const char* name : {"t0", "t1"}) build(name);
    const auto three = cache.bytes() + slack;
    EXPECT_EQ(treesOf(cache), paths({"t0", "t1", "t2"}));
    ++now.tv_sec;
    tree.file("t2/new");
    everything("t2");
    cache.verify = true;
    EXPECT_EQ(found(cache).size(), 3001U);
    cache.verify = false;
    cache.limit = three;
    EXPECT_EQ(build("t3"), 3000U);
    EXPECT_EQ(treesOf(cache), paths({"t1", "t2", "t3"})) << "t2 was built first, t0 read first";
    EXPECT_LE(cache.bytes(), cache.limit);
    // A search that changes nothing removes nothing.
    cache.limit = one;
    everything("t3");
    EXPECT_EQ(found(cache).size(), 3000U);
    EXPECT_EQ(treesOf(cache).size(), 3U);
    EXPECT_EQ(build("t0"), 3000U);
    EXPECT_EQ(treesOf(cache), paths({"t0"}));
    EXPECT_LE(cache.bytes(), cache.limit);
    // If one tree is too large, the tree of the last search stays.
    cache.limit = 1;
    EXPECT_EQ(build("t2"), 3001U);
    EXPECT_EQ(treesOf(cache), paths({"t2"}));
    EXPECT_FALSE(cache.isMarked());
    setClockSource(nullptr);
}

TEST_F(CacheTest, PlansTellWhatIsNotThere) {
    tree.file("gone/x");
    everything("gone");
    query.addIncludePath((L"$local::*:" + tree.wide("gone")).c_str(), true);
    query.addIncludePath(L"$other::/nowhere", true);
    found(cache);
    std::filesystem::remove_all(tree.path("gone"));
    const auto open = cache.open();
    FsQueryReport plan;
    for (const auto& [age, way] :
         {std::pair{kDay, FsSearchWay::cached}, {kAllOld, FsSearchWay::noDirectory}}) {
        ASSERT_TRUE(open->explain(query, age, plan));
        ASSERT_EQ(plan.steps.size(), 1U);
        EXPECT_EQ(plan.steps[0].way, way);
        EXPECT_EQ(plan.unresolved, std::vector<std::wstring>{L"$other::/nowhere"});
    }
    open->close();
    EXPECT_FALSE(open->explain(query, kDay, plan));
}

}  // namespace
}  // namespace fscanner
