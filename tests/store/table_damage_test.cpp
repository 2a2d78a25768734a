// Tables whose files are cut or altered: damage is reported, and refused where it can be known.
// Tests on whole caches show that it has no other effect.

#include "fscanner/store/bytes.h"
#include "store/table_fixture.h"

namespace fscanner {
namespace {

const char* const kFiles[] = {"t.dat", "t.pxx", "t_idx.dat", "names.idx", "paths.idx"};

/// A small table with two indexes, whose files are restored before each trial.
class Damage : public TableTest {
protected:
    Damage() {
        EXPECT_TRUE(create());
        EXPECT_TRUE(table->addHashIndex(L"names", L"NAME"));
        EXPECT_TRUE(table->addHashIndex(L"paths", L"PATHID"));
        for (unsigned i = 0; i < 12; ++i) {
            EXPECT_TRUE(insert({i % 3 ? L"same" : L"caf\u00e9" + std::to_wstring(i), i, i, i % 2}));
        }
        EXPECT_TRUE(table->remove(4));
        headerSize_ = table->headerSize();
        EXPECT_TRUE(table->close());
        for (const char* name : kFiles) good_.push_back(readWholeFile(file(name)));
    }

    void restore() {
        for (std::size_t i = 0; i < good_.size(); ++i) writeWholeFile(file(kFiles[i]), good_[i]);
    }
    void overwrite(const std::string& name, std::size_t at, const std::string& bytes) {
        overwriteFile(file(name), at, bytes);
    }
    static std::string word(unsigned value) {
        value = littleEndian(value);
        return {reinterpret_cast<const char*>(&value), sizeof value};
    }
    std::vector<std::string> good_;
    unsigned headerSize_ = 0;
};
FSCANNER_BOTH_FORMS(Damage);

TEST_P(Damage, ThatAnOpenMeets) {
    const auto length = [&](int i) { return static_cast<unsigned>(good_[unsigned(i)].size()); };
    const unsigned listedName = 8, listedEntry = 12 + 4 * 5 + 4 * 4;
    const struct {
        const char* what;
        std::string name;
        std::size_t at;
        std::string bytes;
        unsigned cut;
    } cases[] = {
        {"no header", "t.dat", 0, "", 11},
        {"a header cut in a name", "t.dat", 0, "", headerSize_ - 1},
        {"257 fields", "t.dat", 8, word(257), ~0U},
        {"an unknown type", "t.dat", 12, word(6), ~0U},
        {"a name of 3 bytes", "t.dat", 16, word(3), ~0U},
        {"a name beyond the end", "t.dat", 16, word(0xFFFFFFFC), ~0U},
        {"a terminator in a name", "t.dat", 20, word(0), ~0U},
        {"a torn offset", "t.pxx", 0, "", 4 * 12 - 1},
        {"a torn slot", "names.idx", 0, "", length(3) - 1},
        {"heads missing", "paths.idx", 0, "", 524288 - 8},
        {"an index without content", "paths.idx", 0, "", 0},
        {"a cut list", "t_idx.dat", 0, "", length(2) - 1},
        {"a list that leads elsewhere", "t_idx.dat", listedName, word('/'), ~0U},
        {"an index twice", "t_idx.dat", listedEntry, good_[2].substr(0, listedEntry), listedEntry},
        {"an index on no field", "t_idx.dat", listedName + 4 * 5 + 4, word('X'), ~0U},
    };
    for (const auto& [what, name, at, bytes, cut] : cases) {
        SCOPED_TRACE(what);
        restore();
        if (cut != ~0U) std::filesystem::resize_file(file(name), cut);
        overwrite(name, at, bytes);
        EXPECT_FALSE(table->open());
        EXPECT_TRUE(table->damaged());
        EXPECT_FALSE(table->isOpen());
        EXPECT_EQ(table->schema().count(), 0U);
    }
    restore();
    EXPECT_TRUE(table->open());
    EXPECT_FALSE(table->damaged()) << "it is another try";
    ASSERT_TRUE(table->close());
    std::filesystem::remove(file("t.pxx"));
    EXPECT_FALSE(table->open());
    EXPECT_FALSE(table->damaged()) << "absent is not damaged";
}

TEST_P(Damage, ThatAReadMeets) {
    const unsigned end = static_cast<unsigned>(good_[0].size());
    const struct {
        const char* what;
        unsigned offset;
        std::string tail;
    } cases[] = {
        {"an offset in the header", headerSize_ - 1, ""},
        {"an offset at the end", end, ""},
        {"an offset behind the end", ~0U, ""},
        {"a text longer than the file", end, std::string("\0\xFF\xFE", 3)},
        {"a cut number", end, std::string("\0\0\0\xFF\xFF", 5)},
        {"a number of eleven groups", end,
         std::string(2, '\0') + std::string(10, '\xFF') + std::string(10, '\0')},
    };
    for (const auto& [what, offset, tail] : cases) {
        // In the fixed form the last one is a record like others.
        if (!isCompact() && tail.size() > 20) continue;
        SCOPED_TRACE(what);
        restore();
        overwrite("t.pxx", 4 * 11, word(offset));
        overwrite("t.dat", end, tail);
        ASSERT_TRUE(table->open());
        Fields values(table->schema());
        EXPECT_TRUE(table->read(10, values));
        EXPECT_FALSE(table->damaged());
        EXPECT_FALSE(table->read(11, values));
        EXPECT_TRUE(table->damaged());
        EXPECT_FALSE(table->buildHashIndex(L"more", L"PATHID"));
        EXPECT_FALSE(exists("more.idx"));
        ASSERT_TRUE(table->close());
        EXPECT_FALSE(table->compact(0));
        EXPECT_TRUE(table->damaged()) << "of the compaction";
        EXPECT_FALSE(exists("t_cpt.dat"));
    }
}

TEST_P(Damage, ThatAWalkMeets) {
    const unsigned slots = static_cast<unsigned>(good_[3].size() / 8);
    // The chain: the head, then slots - 1 and on downwards; one record is removed.
    const std::size_t inHead = std::size_t{8} * indexBucket(L"SAME"), last = 8 * (slots - 1);
    const struct {
        const char* what;
        std::size_t at;
        unsigned value;
        std::size_t found;
    } cases[] = {
        {"whole", inHead, 11, 7},
        {"a record that is not there", inHead, 12, 0},
        {"a slot that is not there", inHead + 4, slots, 0},
        {"a head in a chain", inHead + 4, 5, 0},
        {"an empty head with a chain", inHead, Index::kNone, 0},
        {"a circle of one", last + 4, slots - 1, 1},
        {"a chain that goes up", 8 * (slots - 2) + 4, slots - 1, 2},
        {"an empty slot in a chain", last, Index::kNone, 1},
    };
    for (const auto& [what, at, value, found] : cases) {
        restore();
        overwrite("names.idx", at, word(value));
        ASSERT_TRUE(table->open());
        EXPECT_EQ(chain(L"names", L"SAME").size(), found) << what;
        EXPECT_EQ(table->damaged(), found != 7) << what;
        table->close();
    }
}

}  // namespace
}  // namespace fscanner
