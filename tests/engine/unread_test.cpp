// Directories that could not be read. Every answer names those in its part of the tree. The file
// that lists them is not trusted if anything is wrong with it.

#include <sys/stat.h>

#include <cerrno>

#include "engine/every_way.h"
#include "fscanner/engine/unread_directories.h"
#include "fscanner/fs/fs_explain.h"
#include "fscanner/store/bytes.h"
#include "support/format_example.h"
#include "support/permissions.h"

namespace fscanner {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAreArray;
using Names = std::vector<std::string>;

struct Asked {
    Names include;  // recursive with a "+" at the end
    Names exclude;
    Names denied;  // to be named by the answer

    FsQuery& in(const TempTree& tree, FsQuery& query) const {
        const auto add = [&](auto method, std::string name) {
            const bool recursive = name.ends_with('+');
            if (recursive) name.pop_back();
            (query.*method)((L"*:" + tree.wide(name)).c_str(), recursive);
        };
        for (const std::string& name : include) add(&FsQuery::addIncludePath, name);
        for (const std::string& name : exclude) add(&FsQuery::addExcludePath, name);
        return query;
    }
};

class Unread : public testing::Test {
protected:
    Unread() {
        for (const char* file : {"a/f", "a/locked/g", "a/b/h", "a/b/locked/i", "c/j"})
            tree.file(file);
        lock(0);
    }
    ~Unread() override { lock(0700); }
    void SetUp() override {
        if (!permissions) GTEST_SKIP() << "permissions cannot be made to hold";
    }

    void lock(mode_t mode) const {
        for (const char* name : {"a/locked", "a/b/locked"}) ::chmod(tree.path(name).c_str(), mode);
    }
    Names paths(Names names) const {
        for (std::string& name : names) name = tree.path(name);
        return names;
    }
    static Names deniedOf(const Listener& heard) {
        for (const Listener::Skip& skip : heard.skips) {
            if (skip.reason == FsSkipReason::excluded) continue;
            EXPECT_EQ(skip.reason, FsSkipReason::denied) << skip.directory;
            EXPECT_EQ(skip.error, EACCES) << skip.directory;
        }
        return heard.skippedFor(FsSkipReason::denied);
    }
    /// The number of walks that an answer takes. It must name the directories in `denied`.
    int walks(const CacheUser& user, const std::string& below, const Names& denied,
              unsigned age = kDay) const {
        FsQuery query;
        const Listener heard;
        CollectingWriter writer;
        EXPECT_EQ(user.query(writer, Asked{{below + "+"}, {}, {}}.in(tree, query), age), 0);
        EXPECT_THAT(deniedOf(heard), UnorderedElementsAreArray(paths(denied))) << below;
        return heard.walks;
    }
    std::string file() const { return cache.directory().path("dirs.unread"); }

    PermissionsHold permissions;
    TempTree tree;
    CacheUser cache;
};

// Its name can be read, but nothing in it.
TEST_F(Unread, AFileOfUnknownSizeIsUndecided) {
    lock(0444);
    const struct {
        const wchar_t* criteria;
        Names found, undecided;
    } table[] = {
        {L"[SIZE]<10", {"a/f", "a/b/h", "c/j"}, {"a/locked/g", "a/b/locked/i"}},
        {L"[ATTR]==0", {}, {"a/locked/g", "a/b/locked/i"}},
        {L"[FILENAME]==\"g\" && [SIZE]<10", {}, {"a/locked/g"}},
        {L"[FILENAME]==\"g\"", {"a/locked/g"}, {}},
    };
    for (const auto& row : table) {
        FsQuery query;
        Asked{{"+"}, {}, {}}.in(tree, query).setQuery(row.criteria);
        SCOPED_TRACE(toMultibyte(row.criteria));
        askInEveryWay(query, cache, [&](int status, auto& writer, const Listener& heard) {
            EXPECT_EQ(status, 0);
            EXPECT_THAT(writer.paths, UnorderedElementsAreArray(paths(row.found)));
            EXPECT_THAT(heard.undecidedPaths, UnorderedElementsAreArray(paths(row.undecided)));
        });
    }
}

TEST_F(Unread, EveryAnswerTellsOnceOfThoseInItsPart) {
    const Asked table[] = {
        {{"+"}, {}, {"a/locked", "a/b/locked"}},
        {{"a/b+"}, {}, {"a/b/locked"}},
        {{"c+"}, {}, {}},
        {{"a", "a/b"}, {}, {}},
        {{"a/locked"}, {}, {"a/locked"}},
        {{"a/locked+", "c+"}, {}, {"a/locked"}},
        {{"+", "a/b+"}, {}, {"a/locked", "a/b/locked"}},
        {{"c+", "a/b+"}, {}, {"a/b/locked"}},
        {{"+"}, {"a/b+"}, {"a/locked"}},
        // Paths below it may still be searched.
        {{"a+"}, {"a/locked", "a/b"}, {"a/locked", "a/b/locked"}},
        {{"+"}, {"a+"}, {}},
    };
    for (const Asked& asked : table) {
        SCOPED_TRACE(testing::PrintToString(asked.include) + " without " +
                     testing::PrintToString(asked.exclude));
        FsQuery query;
        asked.in(tree, query);
        askInEveryWay(query, cache, [&](int status, auto&, const Listener& heard) {
            EXPECT_EQ(status, 0);
            EXPECT_THAT(deniedOf(heard), UnorderedElementsAreArray(paths(asked.denied)));
        });
    }
}

TEST_F(Unread, WhoStopsABuildHearsWhatWasMet) {
    // Whatever the order of the walk, one of two is met before so many files.
    for (int i = 0; i < 1100; ++i) tree.file("c/" + std::to_string(i));
    tree.directory("z/locked");
    ::chmod(tree.path("z/locked").c_str(), 0);
    FsQuery query;
    const Listener stopping(1);
    CollectingWriter writer;
    EXPECT_EQ(cache.query(writer, Asked{{"+"}, {}, {}}.in(tree, query)), FS_CACHE_BUILD_TIMED_OUT);
    EXPECT_THAT(deniedOf(stopping), testing::Not(IsEmpty()));
    ::chmod(tree.path("z/locked").c_str(), 0700);
}

TEST_F(Unread, TheFileFollowsTheTables) {
    for (const int walked : {1, 0}) EXPECT_EQ(walks(cache, "", {"a/locked", "a/b/locked"}), walked);
    // Rebuilding gives new IDs, and compacts after a while.
    for (int i = 0; i < 6; ++i) EXPECT_EQ(walks(cache, "a/b", {"a/b/locked"}, kAllOld), 1);
    EXPECT_EQ(walks(cache, "", {"a/locked", "a/b/locked"}), 0);
    // A directory that became readable is found by a rebuild; as a searched path, at once.
    lock(0700);
    EXPECT_EQ(walks(cache, "a/b", {"a/b/locked"}), 0);
    EXPECT_EQ(walks(cache, "a/b/locked", {}), 1);
    EXPECT_EQ(walks(cache, "", {"a/locked"}), 0);
    EXPECT_EQ(walks(cache, "a", {}, kAllOld), 1);
    EXPECT_EQ(walks(cache, "", {}), 0);
    // A tree that is removed takes its entries along.
    lock(0);
    EXPECT_EQ(walks(cache, "a", {"a/locked", "a/b/locked"}, kAllOld), 1);
    const auto size = std::filesystem::file_size(file());
    std::filesystem::rename(tree.path("a"), tree.path("away"));
    FsQuery query;
    CollectingWriter none;
    EXPECT_EQ(cache.query(none, Asked{{"a+"}, {}, {}}.in(tree, query), kAllOld), 0);
    EXPECT_EQ(std::filesystem::file_size(file()), size - 16);
    std::filesystem::rename(tree.path("away"), tree.path("a"));
}

TEST_F(Unread, WithoutAGoodFileEveryTreeIsBuiltAnew) {
    const Names all = {"a/locked", "a/b/locked"};
    walks(cache, "a", all);
    walks(cache, "c", {});
    std::filesystem::remove(file());
    // One after the other: an entry for one directory says nothing of another.
    FsQuery query;
    Asked{{"a+"}, {}, {}}.in(tree, query);
    const auto open = cache.open();
    FsQueryReport plan;
    ASSERT_TRUE(open->explain(query, kDay, plan));
    EXPECT_EQ(plan.steps[0].way, FsSearchWay::rebuilt);
    FsCacheReport held;
    ASSERT_TRUE(open->report(held));
    EXPECT_THAT(held.trees, IsEmpty());
    open->close();
    for (const int walked : {1, 0}) EXPECT_EQ(walks(cache, "c", {}), walked);
    for (const int walked : {1, 0}) EXPECT_EQ(walks(cache, "a", all), walked);

    overwriteFile(file(), 20, "\xff");
    for (const int walked : {1, 0}) EXPECT_EQ(walks(cache, "a", all), walked);
    const std::string elsewhere = cache.directory().path("elsewhere");
    std::filesystem::rename(file(), elsewhere);
    std::filesystem::create_symlink(elsewhere, file());
    for (int i = 0; i < 2; ++i) EXPECT_EQ(walks(cache, "a", all), 1);
}

/// Names that hold wildcards equal others, which no index finds: where the file is lost, there
/// may be some.
TEST(UnreadFile, ALostOneCostsTheIndexAndNoName) {
    TempTree tree;
    for (const char* file : {"a/f.txt", "b/x"}) tree.file(file);
    const CacheUser cache;
    const std::string file = cache.directory().path("dirs.unread");
    const auto asking = [&](FsQuery& query, const std::string& below) -> FsQuery& {
        query.setQuery(L"[FILENAME]==\"f.txt\"");
        return Asked{{below + "+"}, {}, {}}.in(tree, query);
    };
    const auto found = [&](const std::string& below) {
        FsQuery query;
        CollectingWriter writer;
        EXPECT_EQ(cache.query(writer, asking(query, below)), 0);
        return writer.paths.size();
    };
    const auto usesIndex = [&] {
        FsQuery query;
        FsQueryReport plan;
        const auto open = cache.open();
        EXPECT_TRUE(open->explain(asking(query, "a"), kDay, plan));
        open->close();
        return !plan.criteria.indexField.empty();
    };
    EXPECT_EQ(found("a"), 1U);
    EXPECT_TRUE(usesIndex());
    // The counter shows that the file is older.
    const std::string old = readWholeFile(file);
    tree.file("b/*.txt");
    EXPECT_EQ(found("b"), 1U);
    EXPECT_FALSE(usesIndex());
    EXPECT_EQ(found("b"), 1U);
    writeWholeFile(file, old);
    EXPECT_FALSE(usesIndex());
    EXPECT_EQ(found("b"), 1U);
    for (const char* below : {"b", "a", "b"}) {
        std::filesystem::remove(file);
        EXPECT_FALSE(usesIndex());
        EXPECT_EQ(found(below), 1U) << below;
        EXPECT_FALSE(usesIndex());
    }
}

TEST(UnreadFile, IsWrittenAsDocumentedAndReadWithSuspicion) {
    const TempTree place;
    const std::wstring path = place.wide("T.unread");
    UnreadDirectories written, read;
    written.add(3, FsSkipReason::denied, EACCES);
    ASSERT_TRUE(written.save(path, 3));
    EXPECT_EQ(readWholeFile(place.path("T.unread")), exampleBytes("unread-file.md", 0));
    read.load(path, 3);
    EXPECT_TRUE(read.knows(1));
    ASSERT_TRUE(read.contains(3));
    EXPECT_EQ(read.all().at(3).reason, FsSkipReason::denied);
    EXPECT_EQ(read.all().at(3).error, EACCES);

    const auto content = [](std::initializer_list<std::uint32_t> numbers) {
        std::string bytes;
        for (const std::uint32_t number : numbers) appendInteger(bytes, number);
        return bytes;
    };
    // IDs up to 9; the error, 13, is in the upper half of an entry's second number.
    constexpr std::uint32_t denied = 13 << 16 | 1, tooLong = 2;
    const std::string good = content({4, 1, 2, 5, denied, 9, tooLong});
    const std::pair<const char*, std::string> table[] = {
        {"empty", ""},
        {"no kind of names", content({0})},
        {"no count", content({0, 1})},
        {"an unknown kind of names", content({0, 2, 0})},
        {"fewer entries", content({0, 1, 2, 5, denied})},
        {"more entries", content({0, 1, 0, 5, denied})},
        {"a count beyond all memory", content({0, 1, ~0U, 5, denied})},
        {"unknown above the counter", content({10, 1, 0})},
        {"ID 0", content({0, 1, 1, 0, denied})},
        {"an ID above the counter", content({0, 1, 1, 10, denied})},
        {"the same ID twice", content({0, 1, 2, 5, denied, 5, denied})},
        {"descending", content({0, 1, 2, 6, denied, 5, denied})},
        {"no reason", content({0, 1, 1, 5, 13 << 16})},
        {"another reason", content({0, 1, 1, 5, 3})},
        {"no errno", content({0, 1, 1, 5, 4096 << 16 | 1})},
    };
    const SideFile file{path, "FSUNREAD", 1};
    ASSERT_TRUE(file.write(9, good));
    read.load(path, 9);
    EXPECT_EQ(read.all().size(), 2U);
    EXPECT_TRUE(read.plainNames());
    EXPECT_FALSE(read.knows(4));
    EXPECT_TRUE(read.knows(5));
    for (const auto& [what, bytes] : table) {
        ASSERT_TRUE(file.write(9, good));
        read.load(path, 9);
        ASSERT_TRUE(file.write(9, bytes));
        read.load(path, 9);
        EXPECT_THAT(read.all(), IsEmpty()) << what;
        EXPECT_FALSE(read.plainNames()) << what;
        EXPECT_FALSE(read.knows(9)) << what;
        EXPECT_TRUE(read.knows(10)) << what;
    }
    for (const SideFile& other : {SideFile{path, "FSUNREAD", 2}, {path, "FSSTAMPS", 1}}) {
        ASSERT_TRUE(other.write(9, good));
        read.load(path, 9);
        EXPECT_FALSE(read.knows(9));
    }
}

}  // namespace
}  // namespace fscanner
