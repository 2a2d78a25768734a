
#include "discovery/fixtures.h"
#include "engine/cache_user.h"
#include "fscanner/engine/cache_query.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_query.h"
#include "support/current_directory.h"
#include "support/listener.h"

namespace fscanner {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

TEST(ScanQuery, NeedsSomeMountTableAndSomeTime) {
    TempTree tree;
    tree.file("a");
    FsQuery query;
    query.addIncludePath(tree.wide().c_str(), true);
    for (const char* text : {"proc /proc proc rw 0 0\n", ""}) {
        const PastedMountTable table(text);
        CollectingWriter writer;
        EXPECT_EQ(fsScanQuery(writer, query, kMinute), *text ? 0 : FS_CACHE_UNUSABLE);
        EXPECT_EQ(writer.paths.size(), *text ? 1U : 0U);
    }
    CollectingWriter none;
    EXPECT_EQ(fsScanQuery(none, query, 0), FS_CACHE_QUERY_TIMED_OUT);
    EXPECT_EQ(fsScanQuery(none, query, 0xFFFFFFFF), 0) << "very long, not negative";
}

// In a network drive, links of an exclusion are resolved only where it is searched: otherwise a
// dead server would keep the query from beginning.
TEST(ScanQuery, ExclusionsAreResolvedWhereTheSearchGoes) {
    TempTree tree;
    for (const char* name : {"local/f", "net/dir/f", "net/other/f"}) tree.file(name);
    tree.link("dir", "net/link");
    tree.link("net", "way");
    const struct {
        const char* included;
        std::vector<const char*> excluded, found;
        bool touches;
    } table[] = {
        {"", {"net/link"}, {"local/f", "net/other/f"}, true},
        {"", {"way/link"}, {"local/f", "net/other/f"}, true},
        {"net", {"net/link"}, {"net/other/f"}, true},
        {"net/dir", {"net/link"}, {}, true},
        {"net/other", {"net/link/x"}, {"net/other/f"}, true},
        {"local", {"net/link"}, {"local/f"}, false},
        {"", {"net/link", "net"}, {"local/f"}, false},
        {"", {"net/link/f", "way"}, {"local/f"}, false},
        {"", {"net/link", "ne?"}, {"local/f"}, false},
    };
    const PastedMountTable mounts("a / ext4\nfiler:/r " + tree.path("net") + " nfs\n");
    for (const auto& [included, excluded, found, touches] : table) {
        FsQuery query;
        query.addIncludePath((L"$all::*:" + tree.wide(included)).c_str(), true);
        for (const char* path : excluded)
            query.addExcludePath((L"$all::*:" + tree.wide(path)).c_str(), true);
        QueryPlan plan;
        ASSERT_TRUE(plan.make(query));
        EXPECT_EQ(plan.mayTouch(tree.path("net/link")), touches) << included << excluded[0];
        query.setQuery(L"[FILENAME]==\"f\"");
        CollectingWriter writer;
        EXPECT_EQ(fsScanQuery(writer, query, kMinute), 0);
        std::vector<std::string> expected;
        for (const char* name : found) expected.push_back(tree.path(name));
        EXPECT_EQ(writer.sorted(), expected) << included << " without " << excluded[0];
    }
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
    EXPECT_EQ(fsScanQuery(writer, query, kMinute), 0);
    EXPECT_THAT(writer.paths, ElementsAreArray({tree.path("b.h")}));
}

// ---- Plans that are kept ----------------------------------------------------

/// The pairs of one plan, one after the other.
class KeptPairs {
public:
    std::vector<std::string> operator()(const std::string& entry,
                                        const wchar_t* notFileSystem = nullptr) {
        const PathInfo path = pathsOf({entry})[0];
        FsQuery query;
        query.addIncludePath(path.getPathName(), path.getRecursive());
        if (notFileSystem) query.addExcludeFileSystem(notFileSystem);
        const auto plan = kept_.refresh(query);
        return plan ? show(plan->pairs()) : std::vector<std::string>{"-"};
    }

private:
    KeptPlan kept_;
};

bool wasResolved(const DebugLog& log) {
    return log.has("PathHelper::pathResolver - exit.");
}

TEST(KeptPlan, IsResolvedAgainOnlyWhenTheQueryOrTheTableChanges) {
    KeptPairs pairsOf;
    setMountTablePath("/nonexistent/mtab");
    EXPECT_THAT(pairsOf("/mnt+"), ElementsAre("-"));
    const std::vector<std::string> both = {"/mnt+ on /", "/mnt/b+ on /mnt/b"};
    {
        const PastedMountTable table("a / ext4\nb /mnt/b vfat\n");
        EXPECT_EQ(pairsOf("/mnt+"), both);
        const DebugLog log;
        EXPECT_EQ(pairsOf("/mnt+"), both);
        EXPECT_FALSE(wasResolved(log));
        EXPECT_THAT(pairsOf("/mnt+", L"vfat"), ElementsAre("/mnt+ on /"));
        EXPECT_THAT(pairsOf("/mnt/b", L"vfat"), ElementsAre());
        EXPECT_THAT(pairsOf("/mnt/b"), ElementsAre("/mnt/b on /mnt/b"));
        EXPECT_EQ(pairsOf("/mnt+"), both);
    }
    setMountTablePath("/nonexistent/mtab");
    EXPECT_THAT(pairsOf("/mnt+"), ElementsAre("-"));
    // A drive that is not mounted any more would be missing in the drive above it.
    const PastedMountTable table("a / ext4\n");
    EXPECT_THAT(pairsOf("/mnt+"), ElementsAre("/mnt+ on /"));
}

TEST(KeptPlan, FollowsTheCurrentDirectoryAndLinks) {
    const TempTree tree;
    for (const char* directory : {"a/x", "b/x"}) tree.directory(directory);
    const PastedMountTable table("a / ext4\n");
    KeptPairs pairsOf;
    for (const char* name : {"a", "b"}) {
        const CurrentDirectory here(tree.path(name));
        EXPECT_THAT(pairsOf("x+"), ElementsAre(tree.path(name) + "/x+ on /"));
    }
    for (const char* name : {"a", "b"}) {
        std::filesystem::remove(tree.path("l"));
        tree.link(name, "l");
        EXPECT_THAT(pairsOf(tree.path("l")), ElementsAre(tree.path(name) + " on /"));
    }
}

TEST(ScanQuery, AMonitoredQueryLooksAtTheTimeBehindLocalPairsOnly) {
    const TempTree tree;
    for (const char* name : {"f", "s/f", "y/f", "z/f"}) tree.file(name);
    for (int i = 0; i < 1100; ++i) tree.file("r/" + std::to_string(i));
    const PastedMountTable table("/dev/a / ext4\nfiler:/r " + tree.path("r") + " nfs4\nfiler:/s " +
                                 tree.path("s") + " nfs4\n/dev/y " + tree.path("y") +
                                 " xfs\n/dev/z " + tree.path("z") + " xfs\n");
    FsQuery query;
    query.addIncludePath((L"$all::" + tree.wide()).c_str(), true);
    query.setQuery(L"[FILENAME]==\"f\"");
    const Listener stopping(1);
    CollectingWriter writer;
    const CacheUser monitored(false, true);
    EXPECT_EQ(monitored.query(writer, query), FS_CACHE_QUERY_TIMED_OUT);
    EXPECT_THAT(writer.paths, ElementsAre(tree.path("f"), tree.path("s/f"), tree.path("y/f")));
    CollectingWriter none;
    EXPECT_EQ(CacheUser().query(none, query), FS_CACHE_QUERY_TIMED_OUT);
    EXPECT_THAT(none.paths, IsEmpty());
}

}  // namespace
}  // namespace fscanner
