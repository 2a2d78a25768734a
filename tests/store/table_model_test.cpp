// Long random histories of a table against a plain model in memory.

#include <algorithm>
#include <optional>
#include <random>

#include "fscanner/common/wildcard.h"
#include "store/table_fixture.h"

namespace fscanner {
namespace {

constexpr unsigned kOperations = 100000;

class TableModel : public TableTest {
protected:
    /// The record of an id, and the name under which it is indexed:
    /// a record that is rewritten in place keeps its old one.
    struct Entry {
        Row row;
        std::wstring key;
    };

    static std::wstring keyOf(std::wstring name) {
        wcsupper(name.data());
        return name;
    }

    unsigned pick(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

    Row randomRow() {
        static const wchar_t* const stems[] = {L"a",          L"B",   L"readme", L"caf\u00e9",
                                               L"\U0001F600", L"x*y", L""};
        std::wstring name = stems[pick(7)] + std::to_wstring(pick(300));
        if (pick(200) == 0) name.append(pick(3000), L'\u20ac');
        // At these lengths the length itself takes more bytes.
        static constexpr std::size_t lengths[] = {1, 63, 64, 127, 128, 255, 256, 8191, 8192, 65535};
        const std::size_t length = lengths[pick(10)];
        if (pick(200) == 0) name.assign(length, length < 9000 && pick(2) ? L'\U0001F600' : L'x');
        const unsigned long long size = random_() * random_();
        return {name, pick(3) ? pick(100) : ~0U, pick(2) ? size : size >> 40, pick(50)};
    }

    /// An id of the model, dead or alive.
    unsigned anyId() { return pick(static_cast<unsigned>(model_.size()) + 1); }
    bool isLive(unsigned id) const { return id < model_.size() && model_[id]; }

    std::size_t live() const {
        return static_cast<std::size_t>(std::count_if(model_.begin(), model_.end(),
                                                      [](const auto& e) { return e.has_value(); }));
    }

    void insertRow() {
        const Row row = randomRow();
        ASSERT_TRUE(insert(row));
        model_.push_back(Entry{row, keyOf(row.name)});
    }

    void removeRow() {
        const unsigned id = anyId();
        ASSERT_EQ(table->remove(id), isLive(id));
        if (isLive(id)) forget(id);
    }

    void updateRow() {
        const unsigned id = anyId();
        Row row = randomRow();
        if (!isLive(id)) {
            ASSERT_FALSE(update(id, row));
            return;
        }
        const Row& old = model_[id]->row;
        if (pick(2)) row.name = old.name;
        const bool sameLength = row.name.size() == old.name.size();
        // As many characters in more bytes would overwrite the next record.
        if (!isCompact() && sameLength &&
            toMultibyte(row.name).size() > toMultibyte(old.name).size())
            return;
        ASSERT_TRUE(update(id, row));
        if (!isCompact() && sameLength) {
            model_[id]->row = row;
        } else {
            forget(id);
            model_.push_back(Entry{row, keyOf(row.name)});
        }
    }

    void forget(unsigned id) {
        model_[id].reset();
        ++deleted_;
    }

    void readRow() {
        const unsigned id = anyId();
        Fields values(table->schema());
        ASSERT_EQ(table->read(id, values), isLive(id)) << id;
        if (!isLive(id)) return;
        ASSERT_EQ(toRow(values), model_[id]->row) << id;
    }

    void move() {
        const unsigned from = anyId();
        unsigned expected = from + 1;
        while (expected < model_.size() && !model_[expected]) ++expected;
        unsigned id = from;
        const bool found = table->moveNext(id);
        ASSERT_EQ(found, expected < model_.size()) << from;
        ASSERT_EQ(id, found ? expected : from);
        id = from;
        if (from == 0 || !isLive(from - 1)) return;
        ASSERT_TRUE(table->movePrevious(id));
        ASSERT_EQ(id, from - 1);
    }

    /// The chain of a key has all its records, newest first, and maybe others.
    void walkIndex() {
        const unsigned id = anyId();
        if (!isLive(id)) return;
        const std::wstring& key = model_[id]->key;
        std::vector<unsigned> expected;
        for (auto i = static_cast<unsigned>(model_.size()); i-- > 0;) {
            if (isLive(i) && model_[i]->key == key) expected.push_back(i);
        }
        std::vector<unsigned> walked = chain(L"by_name", key.c_str());
        std::erase_if(walked, [&](unsigned other) { return model_[other]->key != key; });
        ASSERT_EQ(walked, expected);
    }

    void closeAndOpen() {
        ASSERT_EQ(count(0), live());
        ASSERT_EQ(count(1), deleted_);
        ASSERT_EQ(ids().size(), live());
        ASSERT_TRUE(table->sync());
        ASSERT_TRUE(reopen());
    }

    void compactTable() {
        ASSERT_TRUE(table->close());
        const unsigned percent = pick(150);
        ASSERT_TRUE(table->compact(static_cast<int>(percent)));
        ASSERT_TRUE(table->open());
        if (deleted_ <= live() * percent / 100) return;
        std::erase(model_, std::nullopt);
        for (auto& entry : model_) entry->key = keyOf(entry->row.name);
        deleted_ = 0;
    }

    void step() {
        const unsigned dice = pick(10000);
        if (dice < 2) return compactTable();
        if (dice < 5) return closeAndOpen();
        if (dice < 3000) return insertRow();
        if (dice < 5300) return removeRow();
        if (dice < 7000) return updateRow();
        if (dice < 8500) return readRow();
        if (dice < 9700) return move();
        walkIndex();
    }

    std::mt19937_64 random_{20};
    std::vector<std::optional<Entry>> model_;
    unsigned deleted_ = 0;
};
FSCANNER_BOTH_FORMS(TableModel);

TEST_P(TableModel, AgreesWithTheTable) {
    ASSERT_TRUE(create());
    ASSERT_TRUE(table->addHashIndex(L"by_name", L"NAME"));
    ASSERT_TRUE(table->addHashIndex(L"by_size", L"SIZE"));
    for (unsigned i = 0; i < kOperations && !HasFatalFailure(); ++i) {
        SCOPED_TRACE(i);
        step();
    }
    EXPECT_FALSE(table->damaged());
}

}  // namespace
}  // namespace fscanner
