// Record sets: moves with and without criteria, by the table and by an index.

#include <gmock/gmock.h>

#include "store/table_fixture.h"
#include "support/log_capture.h"

namespace fscanner {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Records : public TableTest {
protected:
    Records() { EXPECT_TRUE(create()); }

    /// The names of the records that a walk meets; bounded, for walks that do not end.
    static std::vector<std::wstring> names(RecordSet& set) {
        std::vector<std::wstring> all;
        for (bool more = set.moveFirst(); more && all.size() < 1000; more = set.moveNext()) {
            all.push_back(set.getFieldAsString(L"NAME"));
        }
        return all;
    }
    void insertNames(std::initializer_list<const wchar_t*> names) {
        for (const wchar_t* name : names) {
            const unsigned size = static_cast<unsigned>(std::wcslen(name));
            ASSERT_TRUE(insert({name, 0, size, size % 2}));
        }
    }
};
FSCANNER_BOTH_FORMS(Records);

TEST_P(Records, WalkWithoutCriteria) {
    RecordSet set = table->openRecordSet();
    EXPECT_FALSE(set.moveFirst());
    EXPECT_EQ(set.count(), 0U);
    insertNames({L"a", L"bb", L"c", L"dd", L"e"});
    EXPECT_THAT(names(set), ElementsAre(L"a", L"bb", L"c", L"dd", L"e"));
    EXPECT_EQ(set.count(), 4U) << "deliberate: one less than there are";
    EXPECT_FALSE(set.moveLast()) << "deliberate, though the cursor moved";
    EXPECT_TRUE(set.movePrevious());
    EXPECT_EQ(toRow(set), (Row{L"dd", 0, 2, 0}));
    EXPECT_TRUE(set.remove());
    EXPECT_EQ(toRow(set).name, L"dd") << "the buffer keeps what was read";
    EXPECT_TRUE(set.moveNext());
    EXPECT_EQ(toRow(set).name, L"e");
    EXPECT_FALSE(set.moveNext());
}

TEST_P(Records, BufferWritesRecords) {
    RecordSet set = table->openRecordSet();
    EXPECT_THAT(
        std::vector({set.setFieldAsString(L"NAME", L"new"), set.setFieldAsInt32(1, 2),
                     set.setFieldAsInt64(L"SIZE", 1ULL << 40), set.setFieldAsInt32(L"PATHID", 9)}),
        testing::Each(true));
    EXPECT_FALSE(set.setFieldAsInt8(L"PATHID", 1)) << "of another class";
    EXPECT_FALSE(set.setFieldAsInt32(L"pathid", 1));
    EXPECT_FALSE(set.setFieldAsInt32(4, 1));
    ASSERT_TRUE(set.insert());
    RecordSet other = table->openRecordSet();
    ASSERT_TRUE(other.moveFirst());
    EXPECT_EQ(toRow(other), (Row{L"new", 2, 1ULL << 40, 9}));
    EXPECT_EQ(other.getFieldAsInt16(1), 0) << "of another class";
    EXPECT_EQ(other.getFieldAsInt32(L"SIZE"), 0U);
    EXPECT_EQ(other.getFieldAsString(1), nullptr);
    EXPECT_EQ(other.getFieldAsString(L"no"), nullptr);
    other.setFieldAsInt32(1, 3);
    ASSERT_TRUE(other.update());
    ASSERT_TRUE(set.moveFirst());
    EXPECT_EQ(set.getFieldAsInt32(1), 3U);
}

TEST_P(Records, HandlesEnd) {
    RecordSet empty;
    EXPECT_THAT(std::vector({empty.moveFirst(), empty.moveNext(), empty.insert(), empty.remove()}),
                testing::Each(false));
    EXPECT_EQ(empty.getFieldAsString(0U), nullptr);
    EXPECT_EQ(empty.lock(0), SYNC_FAILED);
    RecordSet set = table->openRecordSet();
    EXPECT_EQ(set.lock(1), 0);
    EXPECT_EQ(set.unlock(), 0);
    EXPECT_FALSE(newTable(L"other")->closeRecordSet(set));
    EXPECT_TRUE(table->closeRecordSet(set));
    EXPECT_FALSE(set);
    EXPECT_FALSE(table->closeRecordSet(set));
}

// A null number is not in an index that existed before, and reads as 0. So it shows which way
// a walk went.
TEST_P(Records, CriteriaThatFixAnIndexedFieldWalkItsChain) {
    insertNames({L"a", L"bb", L"c", L"dd"});
    ASSERT_TRUE(table->addHashIndex(L"paths", L"PATHID"));
    ASSERT_TRUE(table->addHashIndex(L"names", L"NAME"));
    Fields nulls(table->schema());
    nulls.as<TextField>(0)->value(L"null");
    ASSERT_TRUE(table->insert(nulls));
    RecordSet set = table->openRecordSet();
    const auto select = [&](const wchar_t* text, bool flag = true) {
        CriteriaEvaluator criteria(text);
        set.setCriteria(&criteria, flag);
        return names(set);
    };
    EXPECT_THAT(select(L"[PATHID]==0"), ElementsAre(L"dd", L"bb")) << "newest first";
    EXPECT_THAT(select(L"[PATHID]==0 && [SIZE]<9 && [NAME]!=\"bb\""), ElementsAre(L"dd"));
    EXPECT_THAT(select(L"[PATHID]==0 || [SIZE]==1"),
                ElementsAre(L"a", L"bb", L"c", L"dd", L"null"));
    EXPECT_THAT(select(L"[NAME]==\"bb\""), ElementsAre(L"bb")) << "keys are in upper case";
    EXPECT_THAT(select(L"[NAME]==\"BB\"", false), ElementsAre(L"bb"));
    EXPECT_THAT(select(L"[NAME]==\"BB\"", true), IsEmpty());
    EXPECT_THAT(select(L"[SIZE]==0"), ElementsAre(L"null")) << "no index: the whole table";
    EXPECT_THAT(select(L"").size(), 5U) << "no criteria";
    ASSERT_TRUE(table->addHashIndex(L"later", L"SIZE"));
    EXPECT_THAT(chain(L"later", L"0"), ElementsAre(4)) << "a record that is read has no nulls";

    CriteriaEvaluator byVariable(L"[PATHID]==path");
    Fields variables;
    variables.add(L"path", FIELD_INT32);
    byVariable.setVariables(&variables);
    ExpValue key;
    key.set(NUMERIC, 1, L"");
    key.setNValueString(L"PATHID");
    byVariable.setHashInfo(key);
    variables.as<Int32Field>(0)->value(1);
    set.setCriteria(&byVariable, true);
    EXPECT_THAT(names(set), ElementsAre(L"c", L"a"));
    EXPECT_FALSE(set.movePrevious()) << "a chain has no way back";
    EXPECT_FALSE(set.moveLast());
    variables.as<Int32Field>(0)->value(2);
    EXPECT_THAT(names(set), IsEmpty()) << "what the bucket gives is checked";

    set.setCriteria(&byVariable, true);
    table->removeHashIndex(L"paths");
    EXPECT_THAT(names(set), IsEmpty()) << "an index that was removed under its walk";
}

TEST_P(Records, AnotherIndexDoesNotGoOnInTheChainOfTheLast) {
    ASSERT_TRUE(table->addHashIndex(L"paths", L"PATHID"));
    ASSERT_TRUE(table->addHashIndex(L"sizes", L"SIZE"));
    for (unsigned i = 0; i < 100; ++i) ASSERT_TRUE(insert({L"x", 0, i, 1}));
    CriteriaEvaluator path(L"[PATHID]==1"), size(L"[SIZE]==7");
    RecordSet set = table->openRecordSet();
    set.setCriteria(&path, true);
    ASSERT_TRUE(set.moveFirst());
    set.setCriteria(&path, true);
    EXPECT_TRUE(set.moveNext()) << "the cursor has not moved";
    EXPECT_EQ(toRow(set).size, 98U);
    set.setCriteria(&size, true);
    EXPECT_FALSE(set.moveNext());
    EXPECT_FALSE(table->damaged()) << "the slot was of the other index";
    EXPECT_TRUE(set.moveFirst());
}

TEST_P(Records, ABufferOfFewerFieldsIsNoDamage) {
    table = newTable(L"grown");
    table->addField(L"SIZE", FIELD_INT32);
    RecordSet set = table->openRecordSet();
    table->addField(L"LATER", FIELD_INT32);
    ASSERT_TRUE(create());
    ASSERT_TRUE(table->insert(table->schema()));
    CriteriaEvaluator criteria(L"[SIZE]==0");
    set.setCriteria(&criteria, true);
    EXPECT_FALSE(set.moveFirst());
    EXPECT_FALSE(table->damaged());
}

TEST_P(Records, MovePreviousStopsAtMatches) {
    insertNames({L"a", L"bb", L"c", L"dd", L"e"});
    CriteriaEvaluator odd(L"[SIZE]==1");
    RecordSet set = table->openRecordSet();
    set.setCriteria(&odd, true);
    set.moveLast();
    for (const wchar_t* name : {L"c", L"a"}) {
        ASSERT_TRUE(set.movePrevious());
        EXPECT_EQ(toRow(set).name, name);
    }
    EXPECT_FALSE(set.movePrevious());
    CriteriaEvaluator none(L"[SIZE]==99");
    set.setCriteria(&none, true);
    set.setFieldAsString(0U, L"old");
    EXPECT_FALSE(set.moveFirst());
    EXPECT_EQ(toRow(set).name, L"e") << "the last record that was tried";
}

TEST_P(Records, PrintsItsBuffer) {
    table = newTable(L"print");
    for (unsigned type = FIELD_INT8; type <= FIELD_TEXT; ++type)
        table->addField((L"F" + std::to_wstring(type)).c_str(), type);
    RecordSet set = table->openRecordSet();
    set.setFieldAsInt8(0U, 255);
    set.setFieldAsInt16(1U, 65535);
    set.setFieldAsInt64(3U, (7ULL << 32) + 6);
    set.setFieldAsString(4U, L"text");
    const LogCapture log;
    set.printFields();
    EXPECT_EQ(log.text(),
              "F1 = 255\nF2 = 65535\nF3 = 0\nF4 = " + std::string(63, ' ') + "6\nF5 = text\n");
}

}  // namespace
}  // namespace fscanner
