#include <gmock/gmock.h>

#include "discovery/fixtures.h"
#include "engine/temp_tree.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_query.h"

namespace fscanner {
namespace {

using testing::ElementsAreArray;

TEST(ScanQuery, NeedsSomeMountTableAndSomeTime) {
    TempTree tree;
    tree.file("a");
    FsQuery query;
    query.addIncludePath(tree.wide().c_str(), true);
    for (const char* text : {"proc /proc proc rw 0 0\n", ""}) {
        const PastedMountTable table(text);
        CollectingWriter writer;
        EXPECT_EQ(fsScanQuery(writer, query, 60000), *text ? 0 : -40);
        EXPECT_EQ(writer.paths.size(), *text ? 1U : 0U);
    }
    CollectingWriter none;
    EXPECT_EQ(fsScanQuery(none, query, 0), -41);
}

// What somebody serves is looked at for the links of an exclusion only where it is searched:
// a dead server would keep the query from beginning.
TEST(ScanQuery, ExclusionsAreResolvedWhereTheSearchGoes) {
    TempTree tree;
    for (const char* name : {"local/f", "net/dir/f", "net/other/f"}) tree.file(name);
    tree.link("dir", "net/link");
    tree.link("net", "way");
    struct Case {
        const char* included;
        std::vector<const char*> excluded;
        std::vector<const char*> found;
        bool touches;
    };
    const std::vector<Case> table = {
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
        EXPECT_EQ(fsScanQuery(writer, query, 60000), 0);
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
    EXPECT_EQ(fsScanQuery(writer, query, 60000), 0);
    EXPECT_THAT(writer.paths, ElementsAreArray({tree.path("b.h")}));
}

}  // namespace
}  // namespace fscanner
