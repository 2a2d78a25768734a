// Hash indexes: chains, keys, the list of a table.

#include <gmock/gmock.h>

#include "store/table_fixture.h"

namespace fscanner {
namespace {

using testing::ElementsAre;

class HashIndex : public TableTest {
protected:
    HashIndex() {
        EXPECT_TRUE(create());
        EXPECT_TRUE(table->addHashIndex(L"names", L"NAME"));
        EXPECT_TRUE(table->addHashIndex(L"sizes", L"SIZE"));
    }
    bool isListed(const wchar_t* indexName) const {
        return table->searchHashIndexForIndexName(indexName, false) != nullptr;
    }
};
FSCANNER_BOTH_FORMS(HashIndex);

TEST_P(HashIndex, ListIsKeptOnDisk) {
    EXPECT_FALSE(table->addHashIndex(L"names", L"SIZE")) << "the name is taken";
    EXPECT_TRUE(table->addHashIndex(L"lost", L"NO SUCH FIELD")) << "deliberate";
    EXPECT_FALSE(table->addHashIndex(nullptr, L"NAME"));
    EXPECT_FALSE(table->buildHashIndex(L"lost", L"name")) << "fields have exact names";
    EXPECT_FALSE(table->buildHashIndex(L"names", L"SIZE")) << "the file is in use";
    std::filesystem::create_directory(file("below"));
    EXPECT_FALSE(table->buildHashIndex(L"below/i", L"NAME")) << "it would not be opened again";
    EXPECT_FALSE(table->removeHashIndex(L"sizes")) << "deliberate, though it removed it";
    EXPECT_FALSE(exists("sizes.idx"));
    EXPECT_TRUE(table->addHashIndex(L"paths", L"PATHID"));
    ASSERT_TRUE(reopen());
    EXPECT_TRUE(isListed(L"names"));
    EXPECT_FALSE(isListed(L"sizes"));
    EXPECT_FALSE(isListed(L"lost"));
    EXPECT_NE(table->searchHashIndexForFieldName(L"PATHID", false), nullptr);
    EXPECT_EQ(table->searchHashIndexForFieldName(L"pathid", false), nullptr);
    ASSERT_TRUE(table->close());
    std::filesystem::remove(file("names.idx"));
    ASSERT_TRUE(table->open()) << "an index whose file is gone is left out";
    EXPECT_FALSE(isListed(L"names"));
    EXPECT_TRUE(isListed(L"paths"));
    EXPECT_TRUE(table->close());
    EXPECT_TRUE(table->create());
    EXPECT_FALSE(exists("t_idx.dat")) << "a new table has no index";
}

// The indexes' fields are looked up once for many inserts from one list.
TEST_P(HashIndex, FollowsItsFieldsThroughChanges) {
    Fields values = toFields({L"x", 0, 7, 9}, table->schema());
    ASSERT_TRUE(table->insert(values));
    table->removeHashIndex(L"names");
    ASSERT_TRUE(table->addHashIndex(L"paths", L"PATHID"));
    values.as<Int64Field>(2)->value(7 + (1ULL << 32));
    ASSERT_TRUE(table->insert(values));
    EXPECT_THAT(chain(L"sizes", L"7"), ElementsAre(1, 0)) << "the low half alone is the key";
    EXPECT_THAT(chain(L"paths", L"9"), ElementsAre(1, 0));
    values.at(2)->setName(L"OTHER");
    EXPECT_FALSE(table->insert(values)) << "it is stored, but not in every index";
    EXPECT_THAT(ids(), ElementsAre(0, 1, 2));
    EXPECT_THAT(chain(L"paths", L"9"), ElementsAre(1, 0)) << "that comes after it";
    const auto detached = table->searchHashIndexForFieldName(L"SIZE", true);
    EXPECT_EQ(detached->getFieldName(), std::wstring(L"SIZE"));
    EXPECT_FALSE(isListed(L"sizes"));
    EXPECT_TRUE(table->hashIndexesUpdate(values, 2));
    EXPECT_THAT(chain(L"paths", L"9"), ElementsAre(2, 1, 0));
}

}  // namespace
}  // namespace fscanner
