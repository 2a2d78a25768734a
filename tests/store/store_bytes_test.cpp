// The store's files byte for byte: the worked examples of docs/formats.

#include <optional>

#include "store/table_fixture.h"
#include "support/format_example.h"

namespace fscanner {
namespace {

class StoreBytes : public TableTest {
protected:
    StoreBytes() {
        table = newTable(L"example");
        table->addField(L"N", FIELD_INT32);
        table->addField(L"T", FIELD_TEXT);
    }
    /// A null number is stored as 0, with its flag.
    void insertPair(std::optional<unsigned> number, const wchar_t* text) {
        Fields values(table->schema());
        if (number) values.as<Int32Field>(0)->value(*number);
        values.as<TextField>(1)->value(text);
        ASSERT_TRUE(table->insert(values));
    }
    std::string bytes(const std::string& name) const { return readWholeFile(file(name)); }
};
FSCANNER_BOTH_FORMS(StoreBytes);

TEST_P(StoreBytes, DataAndOffsets) {
    ASSERT_TRUE(create());
    insertPair(300, L"\u00e9");
    insertPair({}, L"ab");
    ASSERT_TRUE(table->remove(0));
    EXPECT_EQ(std::filesystem::file_size(file("example.dat")), 32768U);
    ASSERT_TRUE(table->close());
    EXPECT_EQ(bytes("example.dat"),
              exampleBytes("data-file.md", 0) + exampleBytes("data-file.md", isCompact() ? 2 : 1));
    EXPECT_EQ(bytes("example.pxx"), exampleBytes("offset-file.md", isCompact() ? 1 : 0));
}

TEST_P(StoreBytes, IndexAndItsList) {
    ASSERT_TRUE(create());
    ASSERT_TRUE(table->addHashIndex(L"i", L"T"));
    insertPair(1, L"a");
    insertPair(2, L"A");
    ASSERT_TRUE(table->close());
    std::string index(524288, '\xFF');
    const std::string head = exampleBytes("index-file.md", 0);
    index.replace(8 * 2405, head.size(), head);
    EXPECT_EQ(bytes("i.idx"), index + exampleBytes("index-file.md", 1));
    EXPECT_EQ(bytes("example_idx.dat"), exampleBytes("index-list-file.md", 0));
}

// All types, in the middle and at the ends of their ranges.
TEST_P(StoreBytes, EveryType) {
    table = newTable(L"types");
    for (unsigned type = FIELD_INT8; type <= FIELD_TEXT; ++type) table->addField(L"F", type);
    ASSERT_TRUE(create());
    Fields values(table->schema());
    ASSERT_TRUE(table->insert(values));
    values.as<Int8Field>(0)->value(0xFE);
    values.as<Int16Field>(1)->value(0x3FFF);
    values.as<Int32Field>(2)->value(0x80);
    values.as<Int64Field>(3)->value(0xFEDCBA9876543210);
    values.as<TextField>(4)->value(std::wstring(200, L'x').c_str());
    ASSERT_TRUE(table->insert(values));
    const unsigned header = table->headerSize();
    ASSERT_TRUE(table->close());
    using namespace std::string_literals;
    const std::string fixed = "\xF8"s + std::string(17, '\0') +
                              "\0\xFE\xFF\x3F\x80\0\0\0\x10\x32\x54\x76\x98\xBA\xDC\xFE\xC8\0"s;
    const std::string compact =
        "\xF8\0\0\0\0\0"
        "\0\xFE\xFF\xFE\x03\0\x03\xFD\xDD\x5D\xA7\x0F\x65\xA1\xC9\x20\x03\x90"s;
    EXPECT_EQ(bytes("types.dat").substr(header),
              (isCompact() ? compact : fixed) + std::string(200, 'x'));
}

}  // namespace
}  // namespace fscanner
