// Trees deeper than a path may be long, and hosts with a small stack and few descriptors: what
// cannot be searched is reported, all else is found.

#include <pthread.h>

#include <cstdlib>
#include <cstring>

#include "hostile/cache_image.h"
#include "support/child_process.h"
#include "support/listener.h"
#include "support/nest.h"
#include "support/test_workers.h"

namespace fscanner {
namespace {

constexpr std::size_t kLongestPath = 1023;
// A sanitizer needs several times as much stack.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kSmallStack = 2 << 20;
#else
constexpr std::size_t kSmallStack = 256 << 10;
#endif

class DeepAndWide : public testing::Test {
protected:
    DeepAndWide() { query.addIncludePath((L"*:" + tree.wide()).c_str(), true); }

    TempTree tree{memoryDirectory()};
    CacheUser cache;
    FsQuery query;
};

// Runs in a thread of its own, to give it its own stack.
template <typename Body>
void onStackOf(std::size_t bytes, Body body) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        (*static_cast<Body*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

/// Enables long paths, as a host does.
class WithLongPaths : public DeepAndWide {
protected:
    WithLongPaths() { FsFileInfo::setLongPathSupport(true); }
    ~WithLongPaths() override {
        FsFileInfo::setLongPathSupport(false);
        // Too deep for other programs.
        EXPECT_EQ(std::system(("rm -rf '" + tree.path() + "'/*").c_str()), 0);
    }

    // Of 10,000 levels, paths of 83,000 bytes; every hundredth level has a file, and siblings on
    // both sides of the way down.
    void plant(int levels = 10000) {
        Nest nest(tree.path());
        std::string path = tree.path();
        for (int level = 0; level < levels; ++level) {
            const std::string name = level % 40 == 0 ? std::string(255, 'm') : "m";
            nest.down(name);
            path += '/' + name;
            if (level % 100 != 0 && level != levels - 1) continue;
            nest.file("f");
            expected.push_back(path + "/f");
            for (const char* const sibling : {"a", "z"}) {
                nest.directory(sibling);
                nest.file((std::string(sibling) + "/f").c_str());
                expected.push_back(path + '/' + sibling + "/f");
            }
        }
        std::sort(expected.begin(), expected.end());
    }
    /// Asks the file system and a cache that is new, young and old in turn. Returns 0 or the number
    /// of the wrong answer.
    int firstWrong() const {
        int answer = 0;
        for (const unsigned age : {kDay, kDay, kAllOld}) {
            CollectingWriter direct, cached;
            ++answer;
            if (fsScanQuery(direct, query, kMinute) != 0 || direct.sorted() != expected)
                return answer;
            ++answer;
            if (cache.query(cached, query, age) != 0 || cached.sorted() != expected) return answer;
        }
        return 0;
    }

    std::vector<std::string> expected;
};

// On a small stack and with few descriptors, with a criteria as deep as allowed.
TEST_F(WithLongPaths, TenThousandLevelsAreFoundWhole) {
    plant();
    query.setQuery(
        (L"[FILENAME]==\"f\"&&" + std::wstring(256, L'(') + L"1" + std::wstring(256, L')') + L"==1")
            .c_str());
    const rlimit few{24, 24};
    const int status = inChild([&] {
        // The process that started the tests may have left some open.
        if (::close_range(3, ~0U, 0) != 0 || ::setrlimit(RLIMIT_NOFILE, &few) != 0) return 100;
        int verdict = 101;
        onStackOf(kSmallStack, [&] { verdict = firstWrong(); });
        if (verdict != 0) return verdict;
        const TestWorkers workers(2);
        onStackOf(kSmallStack, [&] { verdict = firstWrong(); });
        return verdict;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(WithLongPaths, CriteriaAndExclusionsReachTheDepth) {
    plant(2000);
    const std::string deepest =
        *std::max_element(expected.begin(), expected.end(),
                          [](const auto& a, const auto& b) { return a.size() < b.size(); });
    const std::string below = deepest.substr(0, deepest.size() - std::strlen("/a/f"));
    FsFileInfo record;
    record.setFilePath(toWide(below).c_str());
    record.setFileName(L"f");
    EXPECT_TRUE(record.updateInfo());
    query.setQuery(L"path([PATHID], [FILENAME])==\"*/z/f\"");
    query.addExcludePath((toWide(below) + L"/z").c_str(), true);
    query.addExcludePath((tree.wide() + L"/*/m/a").c_str(), true);
    std::erase_if(expected, [&](const std::string& path) { return !path.ends_with("/z/f"); });
    EXPECT_EQ(std::erase(expected, below + "/z/f"), 1U);
    EXPECT_EQ(firstWrong(), 0);
}

TEST_F(WithLongPaths, OtherHostsLeaveOutWhatTheCacheHolds) {
    plant();
    CollectingWriter whole, cached, direct;
    ASSERT_EQ(cache.query(whole, query), 0);
    EXPECT_EQ(whole.paths.size(), expected.size());
    FsFileInfo::setLongPathSupport(false);
    Listener heard;
    EXPECT_EQ(fsScanQuery(direct, query, kMinute), 0);
    const auto told = heard.skippedFor(FsSkipReason::tooLong);
    EXPECT_EQ(told.size(), 1U);
    EXPECT_EQ(std::exchange(heard.skips, {}).size(), 1U);
    EXPECT_EQ(cache.query(cached, query), 0);
    EXPECT_EQ(cached.sorted(), direct.sorted());
    EXPECT_EQ(heard.skippedFor(FsSkipReason::tooLong), told);
    // And a host with long paths does not take the trees that such a host has built for complete.
    CollectingWriter rebuilt, again;
    EXPECT_EQ(cache.query(rebuilt, query, kAllOld), 0);
    EXPECT_EQ(rebuilt.sorted(), direct.sorted());
    FsFileInfo::setLongPathSupport(true);
    heard.skips.clear();
    EXPECT_EQ(cache.query(again, query), 0);
    EXPECT_EQ(again.sorted(), expected);
    EXPECT_TRUE(heard.skips.empty());
}

// A directory that is moved while the walk is below it is left by another way than it was
// entered; the rest of its parent is found by the path.
TEST_F(WithLongPaths, WhatIsMovedMeanwhileDoesNotHideItsOldNeighbours) {
    Nest nest(tree.path());
    nest.directory("elsewhere");
    for (int level = 0; level < 40; ++level) {
        nest.file("f");
        nest.directory("a");
        nest.file("a/f");
        nest.directory("z");
        nest.file("z/f");
        nest.down("m");
    }
    nest.file("last");
    struct Mover : CollectingWriter {
        explicit Mover(const TempTree& tree) : tree_(tree) {}
        int addRecord(const FsFileInfo& record) override {
            if (std::wstring_view(record.getName()) == L"last")
                std::filesystem::rename(tree_.path("m/m/m"), tree_.path("elsewhere/m"));
            return CollectingWriter::addRecord(record);
        }
        const TempTree& tree_;
    } writer(tree);
    EXPECT_EQ(fsScanQuery(writer, query, kMinute), 0);
    // At three levels all is found; files below the moved directory only if the order allows it.
    std::size_t above = 0;
    for (const std::string& path : writer.paths)
        above += path.find("/m/m/m/") == path.npos && path.find("elsewhere") == path.npos;
    EXPECT_EQ(above, 9U);
}

TEST_F(DeepAndWide, PathsAroundTheLimitAreFoundOrReported) {
    Nest nest(tree.path());
    std::size_t length = tree.path().size();
    while (length + 101 < kLongestPath - 110) {
        nest.down(std::string(100, 'd'));
        length += 101;
    }
    // Three siblings whose paths have 1023, 1024 and 1025 characters, and a short one.
    for (const std::size_t whole : {kLongestPath, kLongestPath + 1, kLongestPath + 2, length + 2}) {
        Nest sibling(tree.path());
        for (std::size_t at = tree.path().size(); at < length; at += 101)
            sibling.enter(std::string(100, 'd'));
        sibling.down(std::string(whole - length - 1, 's'));
        sibling.file("short");
        sibling.file(std::string(255, 'l').c_str());
        sibling.down("below");
        sibling.file("f");
    }
    const Listener heard;
    CollectingWriter direct, cached;
    EXPECT_EQ(fsScanQuery(direct, query, kMinute), 0);
    // Two files in the longest directory; those and the one below in the short one.
    EXPECT_EQ(direct.paths.size(), 5U);
    const std::size_t below = kLongestPath + std::strlen("/below");
    std::vector<std::size_t> lengths;
    for (const std::string& path : heard.skippedFor(FsSkipReason::tooLong))
        lengths.push_back(path.size());
    EXPECT_THAT(lengths, testing::UnorderedElementsAre(kLongestPath + 1, kLongestPath + 2, below));
    EXPECT_EQ(heard.skips.size(), lengths.size());
    EXPECT_EQ(cache.query(cached, query), 0);
    EXPECT_EQ(cached.sorted(), direct.sorted());
    // An entry beyond the limit is not cut: a cut path would lead to its sibling.
    std::string entry = tree.path();
    while (entry.size() < length) entry += "/" + std::string(100, 'd');
    entry += "/" + std::string(kLongestPath - length, 's');
    FsQuery beyond;
    beyond.addIncludePath((L"*:" + toWide(entry)).c_str(), true);
    CollectingWriter none;
    const Listener told;
    EXPECT_EQ(fsScanQuery(none, beyond, kMinute), 0);
    EXPECT_THAT(none.paths, testing::IsEmpty());
    EXPECT_THAT(told.skippedFor(FsSkipReason::tooLong), testing::ElementsAre(entry));
    EXPECT_EQ(std::system(("rm -rf '" + tree.path(std::string(100, 'd')) + "'").c_str()), 0);
}

}  // namespace
}  // namespace fscanner
