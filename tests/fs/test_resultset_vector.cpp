#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "fscanner/fs/fs_resultset_vector.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {
namespace {

// The names that the reader still has.
std::wstring rest(FsResultSetReader& reader) {
    std::wstring names;
    for (FsFileInfo record; reader.getNext(record);) names += record.getName();
    return names;
}

TEST(VectorResults, AreReadInOrderAsOftenAsWished) {
    auto results = std::make_unique<FsResultSet_OnVector>();
    FsResultSetWriter* writer = results->getWriter();
    EXPECT_EQ(results->getWriter(), writer);
    FsFileInfo record;
    record.setFilePath(L"/d");
    record.setFileName(L"b");
    EXPECT_EQ(writer->addRecord(L"/d", L"c", 7, FS_ATTR_REGULAR_FILE), 0);
    EXPECT_EQ(writer->addRecord(record), 0);
    record.setFileName(L"a");
    EXPECT_EQ(writer->addRecord(record), 0);

    const std::unique_ptr<FsResultSetReader> reader(results->getReader());
    EXPECT_EQ(results->getReader(), reader.get());
    EXPECT_EQ(rest(*reader), L"cba");
    EXPECT_EQ(writer->addRecord(L"/d", L"d", 0, 0), 0);
    EXPECT_EQ(rest(*reader), L"d") << "added behind an exhausted reader";
    results.reset();

    reader->moveFirst();
    FsFileInfo first;
    ASSERT_TRUE(reader->getNext(first));
    EXPECT_STREQ(first.getPath(), L"/d");
    EXPECT_EQ(first.knownMask(), 3u);
    EXPECT_EQ(first.getSize(), 7u);
    EXPECT_EQ(first.getAttr(), unsigned{FS_ATTR_REGULAR_FILE});
    EXPECT_EQ(reader->sort(FS_SORT_NAME, FS_SORT_ASCENDING, true), 0);
    EXPECT_EQ(reader->setBookmark() | reader->toBookmark(), 0);
    EXPECT_EQ(rest(*reader), L"bad") << "sorting does nothing";

    EXPECT_FALSE(reader->getNext(first));
    EXPECT_STREQ(first.getName(), L"c") << "left as it was";
}

TEST(VectorResults, EmptyOrWithoutAStoreThereIsNothing) {
    FsResultSet_OnVector results;
    const std::unique_ptr<FsResultSetReader> reader(results.getReader());
    reader->moveFirst();
    EXPECT_EQ(rest(*reader), L"");

    FsResultSetWriter_OnVector writer(nullptr);
    EXPECT_EQ(writer.addRecord(L"/d", L"c", 7, 0), -1);
    EXPECT_EQ(writer.addRecord(FsFileInfo()), -1);
    FsResultSetReader_OnVector storeless(nullptr);
    storeless.moveFirst();
    EXPECT_EQ(rest(storeless), L"");
}

TEST(ScanObserver, IsExchanged) {
    FsScanObserver one, other;
    EXPECT_EQ(fsSetScanObserver(&one), nullptr);
    EXPECT_EQ(fsSetScanObserver(&other), &one);
    EXPECT_EQ(scanObserver(), &other);
    EXPECT_TRUE(other.progress({L"/", 0, 0, 0})) << "the default does not stop a scan";
    EXPECT_EQ(fsSetScanObserver(nullptr), &other);
    EXPECT_EQ(scanObserver(), nullptr);
}

}  // namespace
}  // namespace fscanner
