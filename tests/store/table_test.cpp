// Tables: records, ids, moves and counts, updates in both forms, compaction.

#include <gmock/gmock.h>

#include "store/table_fixture.h"

namespace fscanner {
namespace {

using testing::ElementsAre;

class Table : public TableTest {};
FSCANNER_BOTH_FORMS(Table);

const Row kA{L"a.h", 1, 100, 7};
const Row kB{L"\u00e9t\u00e9 \U0001F600", 0xFFFFFFFF, 0xFFFFFFFFFFFFFFFF, 8};

TEST_P(Table, RefusesValuesOfAnotherSchema) {
    ASSERT_TRUE(create());
    Fields other;
    other.add(L"NAME", FIELD_TEXT);
    EXPECT_FALSE(table->insert(other));
    for (int i = 0; i < 3; ++i) other.add(L"X", FIELD_INT16);
    EXPECT_FALSE(table->insert(other));
    ASSERT_TRUE(insert(kA));
    EXPECT_FALSE(table->read(0, other));
    EXPECT_FALSE(table->update(0, other));
    EXPECT_EQ(read(0), kA);
    EXPECT_FALSE(table->damaged()) << "the caller's fault, not the file's";
}

TEST_P(Table, FailsWhileClosed) {
    Fields values(table->schema());
    unsigned id = 5, position = 5, value = 5;
    const auto expectClosed = [&] {
        EXPECT_TRUE(table->read(0, values)) << "deliberate: true, and nothing is read";
        EXPECT_THAT(std::vector({table->insert(values), table->moveFirst(id),
                                 table->moveLast(id, position), table->eof(), table->sync()}),
                    testing::Each(false));
        EXPECT_THAT(std::vector({table->count(0, 1), table->count(0, &value), table->close(),
                                 table->addHashIndex(L"i", L"NAME")}),
                    testing::Each(false));
    };
    expectClosed();
    ASSERT_TRUE(create());
    EXPECT_THAT(std::vector({table->incCount(0), table->count(1, 5), table->decCount(1)}),
                testing::Each(true));
    EXPECT_EQ(10 * count(0) + count(1), 14U);
    EXPECT_FALSE(table->incCount(2));
    EXPECT_FALSE(table->count(-1, 1));
    EXPECT_THAT(std::vector({table->addField(L"LATE", FIELD_INT8), table->erase(), table->create(),
                             table->open()}),
                testing::Each(false));
    ASSERT_TRUE(table->close());
    expectClosed();
    EXPECT_EQ(id + position + value, 15U) << "left as they were";
}

TEST_P(Table, TakesAtMost256Fields) {
    table = newTable(L"wide");
    for (int i = 0; i < 256; ++i) table->addField((L"F" + std::to_wstring(i)).c_str(), FIELD_INT8);
    EXPECT_TRUE(create());
    ASSERT_TRUE(table->insert(table->schema()));
    const unsigned header = table->headerSize();
    ASSERT_TRUE(reopen());
    EXPECT_EQ(table->schema().count(), 256U) << "open starts with an empty schema";
    table->close();
    EXPECT_EQ(std::filesystem::file_size(file("wide.dat")), header + 32U + 256U);
    for (int i = 0; i < 257; ++i) table->addField(L"F", FIELD_INT8);
    EXPECT_FALSE(table->create());
}

// ---- Moves ------------------------------------------------------------------

// Entry id - 1 and those after it are tested, while the reported id falls.
TEST_P(Table, MovePreviousReportsAFallingId) {
    ASSERT_TRUE(create());
    for (int i = 0; i < 6; ++i) ASSERT_TRUE(insert(kA));
    for (const unsigned id : {0U, 5U}) {
        read(id);
        EXPECT_EQ(table->eof(), id == 5) << "the end of what the data file holds";
    }
    for (const unsigned id : {0U, 3U}) ASSERT_TRUE(table->remove(id));
    // Live: 1 2 4 5.
    for (const auto& [from, found, to] : {std::tuple(6U, true, 5U),
                                          {5, true, 4},
                                          {4, true, 2},
                                          {3, true, 2},
                                          {2, true, 1},
                                          {1, false, 1},
                                          {0, false, 0},
                                          {7, false, 7}}) {
        unsigned id = from;
        EXPECT_EQ(table->movePrevious(id), found) << from;
        EXPECT_EQ(id, to) << from;
    }
    ASSERT_TRUE(table->remove(5));
    unsigned id = 99, position = 99;
    EXPECT_FALSE(table->moveLast(id, position)) << "deliberate, though it moved";
    EXPECT_EQ(id, 4U);
    EXPECT_EQ(position, 2U);
}

// ---- Updates ----------------------------------------------------------------

// A text of as many characters, but more bytes, is written over the start of the
// next record, here over the first byte of its null flags.
TEST_P(Table, UpdateInPlaceComparesCharacters) {
    ASSERT_TRUE(create());
    ASSERT_TRUE(insert({L"e", 1, 2, 3}));
    ASSERT_TRUE(insert(kA));
    ASSERT_TRUE(update(0, {L"\u00e9", 1, 2, 0xAB000003}));
    if (isCompact()) return;
    EXPECT_EQ(read(0), (Row{L"\u00e9", 1, 2, 0xAB000003}));
    EXPECT_EQ(read(1), kA);
    ASSERT_TRUE(table->close());
    const std::string bytes = readWholeFile(file("t.dat"));
    const auto second = 12 + 4 * 8 + 4 * (4 + 4 + 4 + 6) + 1 + (2 + 1) + 4 + 8 + 4;
    EXPECT_EQ(bytes[second], '\xAB');
}

TEST_P(Table, UpdateInPlaceMayLengthenTheLastRecord) {
    ASSERT_TRUE(create());
    ASSERT_TRUE(insert({L"eee", 1, 2, 3}));
    const Row longer{L"\u20ac\u20ac\u20ac", 4, 5, 6};
    ASSERT_TRUE(update(0, longer));
    ASSERT_TRUE(insert(kA));
    ASSERT_TRUE(reopen());
    EXPECT_EQ(read(isCompact() ? 1 : 0), longer);
    EXPECT_EQ(read(isCompact() ? 2 : 1), kA);
}

// ---- Compaction and erasing -------------------------------------------------

class Compaction : public Table {
protected:
    /// Ten stored records of the names "r0" and so on, and some deleted ones; closed.
    void fill(int deleted) {
        ASSERT_TRUE(create());
        ASSERT_TRUE(table->addHashIndex(L"by_name", L"NAME"));
        for (int i = 0; i < deleted; ++i) ASSERT_TRUE(insert({L"gone", 0, 0, 0}));
        for (int i = 0; i < deleted; ++i) ASSERT_TRUE(table->remove(static_cast<unsigned>(i)));
        for (int i = 0; i < 10; ++i) ASSERT_TRUE(insert({L"r" + std::to_wstring(i), 0, 0, 0}));
        EXPECT_FALSE(table->compact(0)) << "open";
        EXPECT_FALSE(table->erase()) << "open";
        ASSERT_TRUE(table->close());
    }
};
FSCANNER_BOTH_FORMS(Compaction);

// The counts of the last closing are not valid for files that cannot be opened now.
TEST_P(Compaction, NeedsATableThatOpens) {
    fill(1);
    EXPECT_TRUE(table->compact(99));
    const std::string list = readWholeFile(file("t_idx.dat"));
    writeWholeFile(file("t_idx.dat"), list.substr(0, list.size() - 1));
    EXPECT_FALSE(table->open());
    EXPECT_FALSE(table->compact(99)) << "the list of its indexes is cut";
    writeWholeFile(file("t_idx.dat"), list);
    ASSERT_TRUE(table->open());
    ASSERT_TRUE(table->close());
    EXPECT_TRUE(table->compact(99));
    std::filesystem::remove(file("t.pxx"));
    EXPECT_FALSE(table->compact(99)) << "a file is gone";
}

TEST_P(Compaction, ThatFailsLeavesTheTable) {
    fill(4);
    // A missing index would later hold ids that belong to other records by then.
    std::filesystem::rename(file("by_name.idx"), file("away"));
    EXPECT_FALSE(table->compact(0));
    std::filesystem::rename(file("away"), file("by_name.idx"));
    std::filesystem::create_directory(file("by_name_cpt.idx"));
    EXPECT_FALSE(table->compact(0));
    std::filesystem::remove(file("by_name_cpt.idx"));
    EXPECT_TRUE(table->compact(40)) << "not above its percentage";
    ASSERT_TRUE(table->open());
    EXPECT_EQ(count(1), 4U);
    EXPECT_THAT(chain(L"by_name", L"R3"), ElementsAre(7));
    ASSERT_TRUE(table->close());
    EXPECT_TRUE(table->compact(39)) << "what a failed one left behind is not in the way";
    ASSERT_TRUE(table->open());
    EXPECT_EQ(count(1), 0U);
    EXPECT_THAT(chain(L"by_name", L"R3"), ElementsAre(3));
    ASSERT_TRUE(table->close());
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        left.push_back(entry.path().filename());
    }
    EXPECT_THAT(left, testing::UnorderedElementsAre("t.dat", "t.pxx", "t_idx.dat", "by_name.idx"));
    EXPECT_TRUE(table->erase());
    table.reset();
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

}  // namespace
}  // namespace fscanner
