// Directories of the cache as chains of parents.

#include <gtest/gtest.h>

#include "engine/temp_tree.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_tree.h"

namespace fscanner {
namespace {

// Enough for the paths here.
constexpr unsigned kRoom = 1 << 17;

class CacheTreeTest : public testing::Test {
protected:
    CacheTreeTest() { EXPECT_EQ(store.create(0, FS_CACHE_CREATE), Status::success); }

    void directory(unsigned id, const wchar_t* name, unsigned parent) {
        RecordSet& records = store.directoryRecords();
        records.setFieldAsInt32(DIRECTORIES_ID, id);
        records.setFieldAsString(DIRECTORIES_PATHNAME, name);
        records.setFieldAsInt32(DIRECTORIES_PARENTID, parent);
        records.setFieldAsInt32(DIRECTORIES_CREATIONTIME, 0);
        EXPECT_TRUE(records.insert());
    }
    /// The ID of a path, 0 when it is not there.
    unsigned find(const wchar_t* path, bool caseFlag = true) {
        RecordSet& records = store.directoryRecords();
        const bool found = tree.findPathByName(records, store.ancestorRecords(), path, caseFlag);
        return found ? records.getFieldAsInt32(DIRECTORIES_ID) : 0;
    }
    std::string pathOf(unsigned id, unsigned room = kRoom) {
        std::wstring buffer(kRoom, L'#');
        const bool found = tree.findPathById(store.directoryRecords(), id, buffer.data(), room);
        return found ? toMultibyte(buffer.c_str()) : "-";
    }

    TempTree place;
    CacheStore store{L"d", L"f", place.wide().c_str(), false, true};
    CacheTree tree{store};
};

TEST_F(CacheTreeTest, PathsAreChainsOfParents) {
    directory(1, L"/", 0);
    directory(2, L"a", 1);
    directory(3, L"b", 2);
    directory(4, L"c", 3);
    directory(5, L"top", 0);
    directory(6, L"A", 1);
    directory(7, L"b", 5);
    EXPECT_EQ(find(L"/"), 1U);
    EXPECT_EQ(find(L"/a/b"), 3U);
    EXPECT_EQ(find(L"top/b"), 7U);
    EXPECT_EQ(find(L"/b"), 0U);
    EXPECT_EQ(find(L"b"), 0U);
    EXPECT_EQ(find(L"/B"), 0U);
    EXPECT_EQ(find(L""), 0U);
    // The exact spelling comes first.
    EXPECT_EQ(find(L"/a", false), 2U);
    EXPECT_EQ(find(L"/A", false), 6U);
    EXPECT_EQ(find(L"/A/B/c", false), 4U);
    // Of several records with one name only the newest counts.
    EXPECT_EQ(find(L"top"), 5U);
    directory(8, L"top", 1);
    EXPECT_EQ(find(L"top"), 0U);

    EXPECT_EQ(pathOf(4), "/a/b/c");
    EXPECT_EQ(pathOf(7), "top/b");
    EXPECT_EQ(pathOf(9), "-");
    EXPECT_EQ(pathOf(4, 6 + 4), "/a/b/c");
    EXPECT_EQ(pathOf(4, 6 + 3), "-");
    EXPECT_EQ(pathOf(4, 0), "-");
    // A damaged table may hold circles.
    directory(10, L"x", 11);
    directory(11, L"y", 10);
    EXPECT_EQ(pathOf(10), "-");
    EXPECT_EQ(find(L"/y/x"), 0U);
}

}  // namespace
}  // namespace fscanner
