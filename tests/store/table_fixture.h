#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "fscanner/common/utf8.h"
#include "fscanner/platform/linuxsync.h"
#include "fscanner/store/table.h"
#include "support/temporary_directory.h"

namespace fscanner {

/// A record of the tests' table: NAME (text), ATTR (32 bits), SIZE (64 bits),
/// PATHID (32 bits).
struct Row {
    std::wstring name;
    unsigned attr = 0;
    unsigned long long size = 0;
    unsigned pathId = 0;

    bool operator==(const Row&) const = default;
};

inline void PrintTo(const Row& row, std::ostream* out) {
    *out << '(' << toMultibyte(row.name) << ' ' << row.attr << ' ' << row.size << ' ' << row.pathId
         << ')';
}

inline void addRowFields(FS_Table& table) {
    table.addField(L"NAME", FIELD_TEXT);
    table.addField(L"ATTR", FIELD_INT32);
    table.addField(L"SIZE", FIELD_INT64);
    table.addField(L"PATHID", FIELD_INT32);
}

inline Fields toFields(const Row& row, const Fields& schema) {
    Fields values(schema);
    values.as<TextField>(0)->value(row.name.c_str());
    values.as<Int32Field>(1)->value(row.attr);
    values.as<Int64Field>(2)->value(row.size);
    values.as<Int32Field>(3)->value(row.pathId);
    return values;
}

inline Row toRow(const Fields& values) {
    return {values.as<TextField>(0)->value(), values.as<Int32Field>(1)->value(),
            values.as<Int64Field>(2)->value(), values.as<Int32Field>(3)->value()};
}

inline Row toRow(const RecordSet& set) {
    return {set.getFieldAsString(0U), set.getFieldAsInt32(1U), set.getFieldAsInt64(2U),
            set.getFieldAsInt32(3U)};
}

/// Lock files go to a directory of the test's own.
class LockDirectory {
public:
    explicit LockDirectory(const std::string& path) {
        LinuxSharedMutex::setStorePath(path.c_str());
    }
    ~LockDirectory() { LinuxSharedMutex::setStorePath("/tmp/"); }
};

/// A directory with one table in it, "t", in the fixed or the compact form.
class TableDirectory {
public:
    explicit TableDirectory(bool compressed) : compressed_(compressed) {
        table = newTable();
        addRowFields(*table);
    }

    std::unique_ptr<FS_Table> newTable(const wchar_t* name = L"t") const {
        const std::wstring where = toWide(directory.path().string());
        return std::make_unique<FS_Table>(name, where.c_str(), compressed_);
    }

    bool create() { return table->create(); }
    bool reopen() { return table->close() && table->open(); }
    bool insert(const Row& row) { return table->insert(toFields(row, table->schema())); }
    bool update(unsigned id, const Row& row) {
        return table->update(id, toFields(row, table->schema()));
    }
    Row read(unsigned id) {
        Fields values(table->schema());
        EXPECT_TRUE(table->read(id, values)) << "id " << id;
        return toRow(values);
    }
    /// The ids that a walk from the first record gives.
    std::vector<unsigned> ids() const {
        std::vector<unsigned> all;
        unsigned id = 0;
        for (bool more = table->moveFirst(id); more; more = table->moveNext(id)) all.push_back(id);
        return all;
    }
    unsigned count(int which) const {
        unsigned value = ~0U;
        EXPECT_TRUE(table->count(which, &value));
        return value;
    }
    /// The ids that a walk of an index gives; bounded, for one that does not end.
    std::vector<unsigned> chain(const wchar_t* indexName, const wchar_t* key) {
        const auto index = table->searchHashIndexForIndexName(indexName, false);
        std::vector<unsigned> all;
        unsigned id = 0, next = 0;
        if (!index) return all;
        for (bool more = table->hashIndex_moveFirst(*index, key, id, next);
             more && all.size() < 1000000; more = table->hashIndex_moveNext(*index, id, next)) {
            all.push_back(id);
        }
        return all;
    }

    std::string file(const std::string& name) const { return directory / name; }
    bool exists(const std::string& name) const { return std::filesystem::exists(file(name)); }

    TemporaryDirectory directory{memoryDirectory()};
    LockDirectory locks{directory.path().string()};
    std::unique_ptr<FS_Table> table;

private:
    bool compressed_;
};

/// Every test of a table runs over both forms.
class TableTest : public testing::TestWithParam<bool>, protected TableDirectory {
protected:
    TableTest() : TableDirectory(GetParam()) {}
    bool isCompact() const { return GetParam(); }
};

#define FSCANNER_BOTH_FORMS(suite)                                                     \
    INSTANTIATE_TEST_SUITE_P(Forms, suite, testing::Bool(),                            \
                             [](const testing::TestParamInfo<bool>& form) {            \
                                 return std::string(form.param ? "Compact" : "Fixed"); \
                             })

}  // namespace fscanner
