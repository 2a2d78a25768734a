#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>

#include "engine/temp_tree.h"
#include "fscanner/discovery/mount_table.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_query.h"
#include "support/child_process.h"

namespace fscanner {
namespace {

using testing::ElementsAreArray;

// A namespace of our own, so that what is mounted is seen by nobody else.
bool leaveMountNamespace() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool mountTmpfs(const std::string& source, const std::string& at) {
    return mount(source.c_str(), at.c_str(), "tmpfs", 0, "size=1m") == 0;
}

struct QueryCase {
    const char* what;
    std::vector<std::wstring> include;
    std::vector<std::wstring> exclude;
    std::vector<std::string> names;
    bool recursive = true;
    const wchar_t* notFileSystem = nullptr;
};

FsQuery& describe(const QueryCase& c, FsQuery& query) {
    for (const std::wstring& path : c.include) query.addIncludePath(path.c_str(), c.recursive);
    for (const std::wstring& path : c.exclude) query.addExcludePath(path.c_str(), true);
    if (c.notFileSystem) query.addExcludeFileSystem(c.notFileSystem);
    return query;
}

// Directly, and from a cache that the earlier cases have filled. Prints what differs,
// because the child's assertions are lost.
int wrongAnswers(const TempTree& tree, const TempTree& cacheDirectory, const QueryCase& c) {
    FsQuery query;
    describe(c, query);
    std::vector<std::string> expected;
    for (const std::string& name : c.names) expected.push_back(tree.path(name));
    std::sort(expected.begin(), expected.end());
    int wrong = 0;
    for (const char* way : {"direct", "cached"}) {
        CollectingWriter writer;
        int status = 0;
        if (*way == 'd') {
            status = fsScanQuery(writer, query, 60000);
        } else {
            FS_Cache cache(L"d", L"f", cacheDirectory.wide().c_str(), false, false, true);
            status = cache.create(0, FS_CACHE_OPEN_ALWAYS);
            if (status == 0) status = cache.executeQuery(writer, query, 60000, 3600);
            cache.close();
        }
        if (status == 0 && writer.sorted() == expected) continue;
        ++wrong;
        fprintf(stderr, "%s, %s: status %d, found:\n", c.what, way, status);
        for (const std::string& path : writer.sorted()) fprintf(stderr, "  %s\n", path.c_str());
    }
    return wrong;
}

// The tree: top, a/x on the file system that holds it; m is a local mount, r a
// remote one inside it, and both have a file.
int runMountedCases(const TempTree& tree) {
    if (!leaveMountNamespace()) return 77;
    tree.directory("m");
    if (!mountTmpfs("ours", tree.path("m"))) return 77;
    tree.directory("m/r");
    if (!mountTmpfs("server:/export", tree.path("m/r"))) return 77;
    tree.file("top");
    tree.file("a/x");
    tree.file("m/local");
    tree.file("m/r/remote");
    const std::wstring root = tree.wide();
    const auto group = [&](const wchar_t* media, const wchar_t* below = L"") {
        return std::wstring(media) + L"::*:" + root + below;
    };
    const std::vector<QueryCase> cases = {
        {"default is local", {root}, {}, {"top", "a/x", "m/local"}},
        {"all", {group(L"$all")}, {}, {"top", "a/x", "m/local", "m/r/remote"}},
        {"remote below a local path", {group(L"$remote")}, {}, {"m/r/remote"}},
        {"not recursive", {group(L"$all")}, {}, {"top"}, false},
        {"a path on the nested mount", {group(L"$all", L"/m")}, {}, {"m/local", "m/r/remote"}},
        {"overlapping paths once",
         {group(L"$all"), group(L"$all", L"/a"), group(L"$all", L"/m")},
         {},
         {"top", "a/x", "m/local", "m/r/remote"}},
        {"exclusion with the mounts below",
         {group(L"$all")},
         {group(L"$all", L"/m")},
         {"top", "a/x"}},
        {"a local exclusion spares remote drives",
         {group(L"$all")},
         {root + L"/m"},
         {"top", "a/x", "m/r/remote"}},
        {"file system left out", {group(L"$all")}, {}, {"top", "a/x"}, true, L"tmpfs"},
        {"no drive of that group", {group(L"$other")}, {}, {}},
    };
    int wrong = 0;
    const TempTree cache;
    for (const QueryCase& c : cases) wrong += wrongAnswers(tree, cache, c);
    return wrong;
}

TEST(ScanQuery, MountPointsAndDriveGroups) {
    TempTree tree;
    const int wrong = inChild([&] { return runMountedCases(tree); });
    if (wrong == 77) GTEST_SKIP() << "no mount namespace of our own here";
    EXPECT_EQ(wrong, 0);
}

TEST(ScanQuery, CriteriaThatDoesNotCompileFindsNothing) {
    TempTree tree;
    tree.file("a");
    for (const wchar_t* criteria : {L"1 2", L"[NOTHERE]==1", L"(1"}) {
        FsQuery query;
        query.addIncludePath((L"$all::*:" + tree.wide()).c_str(), true);
        query.setQuery(criteria);
        CollectingWriter writer;
        EXPECT_EQ(fsScanQuery(writer, query, 60000), 0);
        EXPECT_TRUE(writer.paths.empty());
    }
}

TEST(ScanQuery, ATableWithoutTheRootIsEnough) {
    TempTree tree;
    tree.file("a");
    FsQuery query;
    query.addIncludePath(tree.wide().c_str(), true);
    const std::string table = tree.path() + ".mounts";
    for (const char* text : {"proc /proc proc rw 0 0\n", ""}) {
        writeWholeFile(table, text);
        setMountTablePath(table.c_str());
        CollectingWriter writer;
        const int status = fsScanQuery(writer, query, 60000);
        setMountTablePath(nullptr);
        EXPECT_EQ(status, *text ? 0 : -40);
        EXPECT_EQ(writer.paths.size(), *text ? 1U : 0U);
    }
    std::filesystem::remove(table);
}

TEST(ScanQuery, TimeOutIsACode) {
    TempTree tree;
    tree.file("a");
    FsQuery query;
    query.addIncludePath(tree.wide().c_str(), true);
    CollectingWriter writer;
    EXPECT_EQ(fsScanQuery(writer, query, 0), -41);
}

// A filter may be made and asked while a scan runs.
TEST(RecordFilter, LeavesARunningScanAlone) {
    TempTree tree;
    for (const char* name : {"a.h", "b.h", "c.c"}) tree.file(name);
    class Filtering : public CollectingWriter {
    public:
        int addRecord(const FsFileInfo& record) override {
            const auto filter = FsRecordFilter::create(L"path(1,\"\")==\"*/b.h\"", true);
            if (filter && filter->matches(record)) CollectingWriter::addRecord(record);
            return 0;
        }
    } writer;
    FsQuery query;
    query.addIncludePath((L"$all::*:" + tree.wide()).c_str(), true);
    query.setQuery(L"path([PATHID],[FILENAME])==\"*.h\"");
    EXPECT_EQ(fsScanQuery(writer, query, 60000), 0);
    EXPECT_THAT(writer.paths, ElementsAreArray({tree.path("b.h")}));
}

TEST(RecordFilter, RefusesWhatDoesNotCompile) {
    EXPECT_EQ(FsRecordFilter::create(L"1 2", true), nullptr);
    EXPECT_NE(FsRecordFilter::create(nullptr, true), nullptr);
}

}  // namespace
}  // namespace fscanner
