#include <gmock/gmock.h>

#include "discovery/fixtures.h"
#include "engine/temp_tree.h"
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
