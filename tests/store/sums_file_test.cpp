// Checksums of a table's files: every change updates them, and damage never gets a new checksum.

#include "fscanner/store/sums_file.h"

#include <gmock/gmock.h>
#include <algorithm>
#include <map>
#include <random>

#include "store/table_fixture.h"
#include "support/format_example.h"

namespace fscanner {
namespace {

constexpr unsigned kBlock = BlockSums::kBlock;

class SumsOfFiles : public testing::Test {
protected:
    std::wstring wide(const std::string& name) const { return toWide(path(name)); }
    std::string path(const std::string& name) const { return directory_ / name; }
    void put(const std::string& name, const std::string& content) const {
        writeWholeFile(path(name), content);
    }

    TemporaryDirectory directory_{memoryDirectory()};
};

TEST_F(SumsOfFiles, AreWrittenAsDocumentedAndReadWithSuspicion) {
    put("T.counter", std::string("\3\0\0\0", 4));
    put("F.pxx", std::string(kBlock + 4, '\0'));
    SumsFile written(wide("T.sums"));
    for (const char* name : {"T.counter", "F.pxx"}) ASSERT_TRUE(written.takeUp(wide(name)));
    ASSERT_TRUE(written.write());
    EXPECT_FALSE(std::filesystem::exists(path("T.sums")));
    ASSERT_TRUE(written.replace());
    const std::string good = readWholeFile(path("T.sums"));
    EXPECT_EQ(good, exampleBytes("sums-file.md", 0));

    const auto loads = [&](const std::string& bytes) {
        put("T.sums", bytes);
        SumsFile read(wide("T.sums"));
        return read.load();
    };
    EXPECT_TRUE(loads(good));
    for (std::size_t length = 0; length < good.size(); ++length)
        EXPECT_FALSE(loads(good.substr(0, length))) << length;
    EXPECT_FALSE(loads(good + '\0'));
    const std::size_t sums = 3 * BlockSums::kSum;
    for (std::size_t at = 0; at < good.size(); ++at) {
        std::string flipped = good;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x10);
        const bool isSum = at >= good.size() - sums;
        EXPECT_EQ(loads(flipped), isSum) << at;
        if (!isSum) continue;
        SumsFile read(wide("T.sums"));
        ASSERT_TRUE(read.load());
        const std::vector<bool> held = {read.holds(wide("T.counter")), read.holds(wide("F.pxx"))};
        EXPECT_THAT(held, testing::Contains(false)) << at;
        EXPECT_TRUE(read.damaged());
    }
}

TEST_F(SumsOfFiles, RefuseToHaveADamagedBlockChanged) {
    std::string content(2 * kBlock, 'x');
    put("file", content);
    SumsFile sums(wide("sums"));
    ASSERT_TRUE(sums.takeUp(wide("file")));
    content[kBlock + 7] = 'y';
    put("file", content);
    SummedFile file;
    ASSERT_EQ(file.open(wide("file").c_str(), &sums), OpenResult::ok);
    EXPECT_NE(file->change(0, 4), nullptr);
    EXPECT_EQ(file->change(kBlock + 2000, 4), nullptr);
    ASSERT_TRUE(file->seek(kBlock, SEEK_FROM_START));
    EXPECT_EQ(file->write("zz", 2), 0U);
    EXPECT_TRUE(file.close());
    EXPECT_TRUE(sums.damaged());
    EXPECT_EQ(readWholeFile(path("file")), content);
    EXPECT_FALSE(sums.holds(wide("file")));
}

/// A table with checksums, as a cache has it.
class SumsOfTables : public testing::TestWithParam<bool> {
protected:
    SumsOfTables() : place_(GetParam()), sums_(toWide(place_.file("sums"))) {
        place_.table->keepSums(&sums_);
        EXPECT_TRUE(place_.create());
        EXPECT_TRUE(place_.table->addHashIndex(L"byName", L"NAME"));
        EXPECT_TRUE(place_.table->addHashIndex(L"byPath", L"PATHID"));
    }

    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    Row randomRow() { return {std::wstring(below(300), L'n'), below(9), random_(), below(50)}; }
    void change() {
        const std::vector<unsigned> ids = place_.ids();
        switch (ids.empty() ? 0 : below(6)) {
            case 0:
            case 1:
            case 2:
                EXPECT_TRUE(place_.insert(randomRow()));
                break;
            case 3:
                EXPECT_TRUE(place_.table->remove(ids[below(static_cast<unsigned>(ids.size()))]));
                break;
            default: {
                const unsigned id = ids[below(static_cast<unsigned>(ids.size()))];
                Row row = place_.read(id);
                row.attr = below(99);
                EXPECT_TRUE(place_.update(id, row));
            }
        }
    }
    /// Each file's checksums fit its present bytes.
    void expectSumsOfTheBytes() {
        SumsFile fresh(toWide(place_.file("fresh")));
        for (const auto& [name, sums] : sums_.files()) {
            const std::string file = place_.file(toMultibyte(name));
            ASSERT_TRUE(fresh.takeUp(toWide(file))) << file;
            const BlockSums& own = *fresh.find(toWide(file));
            EXPECT_EQ(sums->size(), own.size()) << file;
            EXPECT_TRUE(std::ranges::equal(sums->sums(), own.sums())) << file;
        }
    }
    bool throughTheFile() { return sums_.write() && sums_.replace() && sums_.load(); }

    TableDirectory place_;
    SumsFile sums_;
    std::mt19937 random_{5};
};

TEST_P(SumsOfTables, FollowEveryChange) {
    for (int session = 0; session < 40 && !HasFailure(); ++session) {
        SCOPED_TRACE(session);
        for (unsigned i = below(60); i > 0; --i) change();
        ASSERT_TRUE(place_.table->close());
        if (session % 4 == 3) {
            ASSERT_TRUE(place_.table->compact(5));
        }
        EXPECT_FALSE(place_.table->damaged());
        EXPECT_EQ(sums_.files().size(), 4U);
        expectSumsOfTheBytes();
        if (session % 2 == 1) {
            ASSERT_TRUE(throughTheFile());
        }
        ASSERT_TRUE(place_.table->open());
    }
}

// Whatever is done to a table with a damaged byte, the damage is reported, or can still be found.
// A compaction may drop it with removed records.
TEST_P(SumsOfTables, NeverHideDamage) {
    std::vector<Row> rows;
    const auto insert = [&] {
        rows.push_back(randomRow());
        return place_.insert(rows.back());
    };
    for (int i = 0; i < 400; ++i) EXPECT_TRUE(insert());
    ASSERT_TRUE(place_.table->close());
    ASSERT_TRUE(throughTheFile());
    const std::string names[] = {"t.dat", "t.pxx", "byName.idx", "byPath.idx", "sums"};
    std::map<std::string, std::string> good;
    for (const std::string& name : names) good[name] = readWholeFile(place_.file(name));
    std::map<std::string, unsigned> told, kept;
    for (int trial = 0; trial < 400 && !HasFailure(); ++trial) {
        for (const auto& [name, content] : good) writeWholeFile(place_.file(name), content);
        const std::string name = names[below(4)];
        SCOPED_TRACE("trial " + std::to_string(trial) + ", " + name);
        std::string bytes = good[name];
        char& byte = bytes[below(static_cast<unsigned>(bytes.size()))];
        byte = static_cast<char>(byte ^ (1 << below(8)));
        writeWholeFile(place_.file(name), bytes);
        ASSERT_TRUE(sums_.load());
        if (place_.table->open()) {
            for (int i = 0; i < 8 && place_.table->remove(below(400)) && insert(); ++i) {
            }
            place_.table->close();
        }
        const bool compacted = trial % 2 == 0 && place_.table->compact(1);
        if (place_.table->damaged()) {
            ++told[name];
            continue;
        }
        ++kept[name];
        if (!compacted) {
            EXPECT_FALSE(sums_.holds(toWide(place_.file(name))));
            continue;
        }
        ASSERT_TRUE(place_.table->open());
        for (const unsigned id : place_.ids())
            EXPECT_NE(std::find(rows.begin(), rows.end(), place_.read(id)), rows.end());
        place_.table->close();
    }
    for (const char* name : {"t.dat", "t.pxx"}) EXPECT_GT(told[name], 0U) << name;
    for (const char* name : {"t.dat", "byName.idx", "byPath.idx"})
        EXPECT_GT(kept[name], 0U) << name;
}

INSTANTIATE_TEST_SUITE_P(Encodings, SumsOfTables, testing::Bool(),
                         [](const auto& form) { return form.param ? "Compressed" : "Fixed"; });

}  // namespace
}  // namespace fscanner
