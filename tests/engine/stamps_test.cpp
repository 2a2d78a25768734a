// What directories looked like when they were read: the file, and the rules for believing it.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <random>

#include "engine/temp_tree.h"
#include "fscanner/common/time.h"
#include "fscanner/engine/directory_stamps.h"
#include "support/format_example.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kSecond = 1'000'000'000;

DirectoryStamp stampOf(std::uint64_t number) {
    DirectoryStamp stamp;
    stamp.device = 2049;
    stamp.inode = 1000 + number;
    stamp.changed = 1'700'000'000 * kSecond + 123'456'789;
    stamp.modified = stamp.changed - number;
    stamp.read = stamp.changed + kSecond;
    return stamp;
}

// ---- The rules --------------------------------------------------------------

TEST(StampRules, ATimeNearTheReadingOrOfWholeSecondsIsNotBelieved) {
    constexpr std::uint64_t step = 20'000'000, then = 1'700'000'000 * kSecond + 5;
    const struct {
        const char* what;
        std::uint64_t changed, read;
        bool racy;
    } table[] = {
        {"long before", then, then + 100 * kSecond, false},
        {"just more than a step", then, then + step + 1, false},
        {"a step", then, then + step, true},
        {"the same time", then, then, true},
        {"after the reading", then, then - 1, true},
        {"an hour after it: the clock was set back", then + 3600 * kSecond, then, true},
        {"whole seconds", then - 5, then + 100 * kSecond, true},
        {"before the epoch", 0 - 5 * kSecond + 7, then, false},
        {"beyond 64 bits", ~std::uint64_t{0}, step + 1, false},
        {"beyond 64 bits, and near", ~std::uint64_t{0}, 5, true},
    };
    for (const auto& row : table) {
        DirectoryStamp stamp;
        stamp.changed = row.changed;
        stamp.read = row.read;
        EXPECT_EQ(isRacy(stamp, step), row.racy) << row.what;
    }
}

TEST(StampRules, UnchangedIsEqualInAllButTheReading) {
    const DirectoryStamp kept = stampOf(1);
    DirectoryStamp now = kept;
    now.read = kept.read - 3600 * kSecond;
    EXPECT_TRUE(isUnchanged(kept, now, 1));
    EXPECT_FALSE(isUnchanged(kept, now, 2 * kSecond));
    EXPECT_FALSE(isUnchanged({}, {}, 1));
    for (std::uint64_t DirectoryStamp::*field :
         {&DirectoryStamp::device, &DirectoryStamp::inode, &DirectoryStamp::changed,
          &DirectoryStamp::modified})
        for (const std::uint64_t other : {kept.*field - 1, kept.*field + 1}) {
            DirectoryStamp changed = kept;
            changed.*field = other;
            EXPECT_FALSE(isUnchanged(kept, changed, 1));
        }
}

TEST(StampRules, TypesThatAreNotKnownAreNotTrusted) {
    constexpr std::uint32_t trusted[] = {0xEF53,     0x58465342, 0x9123683E,
                                         0x01021994, 0xF2F52010, 0x2FC12FC1};
    // vfat, FUSE, NFS, proc, overlay
    constexpr std::uint32_t others[] = {0x4D44, 0x65735546, 0x6969, 0x9FA0, 0x794C7630, 0, ~0U};
    for (const std::uint32_t type : trusted)
        EXPECT_NE(findStampTrust(type), nullptr) << std::hex << type;
    for (const std::uint32_t type : others)
        EXPECT_EQ(findStampTrust(type), nullptr) << std::hex << type;

    Directory directory;
    StampTaker taker;
    ASSERT_EQ(directory.openPath("/proc"), 0);
    EXPECT_FALSE(taker.take(directory).exists());
    const TempTree tree;
    ASSERT_EQ(directory.openPath(tree.path().c_str()), 0);
    struct stat info {};
    ASSERT_EQ(::stat(tree.path().c_str(), &info), 0);
    const DirectoryStamp stamp = taker.take(directory);
    EXPECT_EQ(stamp, DirectoryStamp(info, stamp.read));
    EXPECT_LE(stamp.read, getFileClock());
    ASSERT_EQ(directory.openPath("/proc"), 0);
    EXPECT_FALSE(taker.take(directory).exists());
}

/// A change right after a reading may get the time that the directory had.
TEST(StampRules, AChangeRightAfterAReadingIsSeen) {
    for (const fs::path& place : {memoryDirectory(), fs::temp_directory_path()}) {
        const TempTree tree(place);
        Directory directory;
        ASSERT_EQ(directory.openPath(tree.path().c_str()), 0);
        StampTaker taker;
        for (int i = 0; i < 3000; ++i) {
            const std::string file = tree.path("f");
            const DirectoryStamp read = taker.take(directory);
            if (i % 2 == 0)
                writeWholeFile(file, "");
            else
                fs::remove(file);
            ASSERT_FALSE(isUnchanged(read, taker.take(directory), taker.trust()->step)) << i;
        }
    }
}

// ---- The file ---------------------------------------------------------------

class StampsFile : public testing::Test {
protected:
    /// Closes the file, as a cache does, and takes its checksums.
    void finish(unsigned counter) {
        ASSERT_TRUE(stamps.finish(counter));
        ASSERT_TRUE(stamps.close());
        ASSERT_TRUE(sums.write());
        ASSERT_TRUE(sums.replace());
    }
    bool open(unsigned counter, bool summed = false) {
        if (!sums.load()) return false;
        if (summed && !sums.takeUp(path)) return false;
        return stamps.open(path, sums, counter);
    }
    std::string bytes() const { return readWholeFile(place.path("T.stamps")); }
    void setBytes(const std::string& content) const {
        writeWholeFile(place.path("T.stamps"), content);
    }

    TempTree place;
    std::wstring path = place.wide("T.stamps");
    SumsFile sums{place.wide("T.sums")};
    DirectoryStamps stamps;
};

TEST_F(StampsFile, IsWrittenAsDocumented) {
    ASSERT_TRUE(stamps.create(path, sums));
    DirectoryStamp stamp;
    stamp.device = 0xFE00;
    stamp.inode = 131073;
    stamp.changed = 1'700'000'000'123'456'789;
    stamp.modified = 1'600'000'000'000'000'001;
    stamp.read = 1'700'000'060'004'000'000;
    ASSERT_TRUE(stamps.put(2, stamp));
    ASSERT_TRUE(stamps.put(3, {}));
    finish(3);
    EXPECT_EQ(bytes(), exampleBytes("stamps-file.md", 0));
    ASSERT_TRUE(open(3));
    EXPECT_EQ(stamps.find(2), stamp);
    EXPECT_FALSE(stamps.find(3).exists());
    EXPECT_FALSE(stamps.find(1).exists());
}

TEST_F(StampsFile, IsOfNoUseOnceItIsNotAsItWas) {
    ASSERT_TRUE(stamps.create(path, sums));
    for (unsigned id = 1; id <= 3; ++id) ASSERT_TRUE(stamps.put(id, stampOf(id)));
    finish(7);
    const std::string good = bytes();
    const auto expectNone = [&](const std::string& what, unsigned counter, bool summed) {
        EXPECT_FALSE(open(counter, summed)) << what;
        EXPECT_FALSE(stamps.find(2).exists()) << what;
        EXPECT_TRUE(stamps.put(2, stampOf(9))) << what;
        // A fault of the file is not damage of the cache.
        EXPECT_FALSE(sums.damaged()) << what;
        EXPECT_EQ(sums.find(path), nullptr) << what;
    };
    expectNone("another counter", 8, false);
    for (std::size_t at = 0; at < good.size(); ++at) {
        setBytes(good.substr(0, at));
        expectNone("cut at " + std::to_string(at), 7, false);
        setBytes(good);
        overwriteFile(place.path("T.stamps"), at, {static_cast<char>(good[at] ^ 4)});
        expectNone("flipped at " + std::to_string(at), 7, false);
    }
    setBytes(good + std::string(44, '\0'));
    expectNone("longer", 7, false);
    fs::remove(place.path("T.stamps"));
    expectNone("missing", 7, false);

    // With the right checksums, its content must fit.
    const std::pair<const char*, std::string> table[] = {
        {"another magic", "FSUNREAD" + good.substr(8)},
        {"another version", good.substr(0, 8) + '\2' + good.substr(9)},
        {"more entries than there are", good.substr(0, 16) + '\4' + good.substr(17)},
        {"entries beyond all files", good.substr(0, 16) + "\xFF\xFF\xFF\xFF" + good.substr(20)},
        {"half an entry", good + std::string(22, '\0')},
        {"half a header", good.substr(0, 18)},
        {"nothing", ""},
    };
    for (const auto& [what, content] : table) {
        setBytes(content);
        expectNone(what, 7, true);
    }
    setBytes(good);
    ASSERT_TRUE(open(7));
    EXPECT_EQ(stamps.find(2), stampOf(2));
}

/// Against a map, over many sessions.
TEST_F(StampsFile, HoldsWhatWasPut) {
    std::mt19937 random(5);
    const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    std::map<unsigned, DirectoryStamp> model;
    unsigned last = 0;
    ASSERT_TRUE(stamps.create(path, sums));
    for (int step = 0; step < 20000 && !HasFailure(); ++step) {
        const unsigned id = below(8) < 3 ? last + 1 + below(5) : 1 + below(last + 2);
        const DirectoryStamp stamp = below(4) == 0 ? DirectoryStamp() : stampOf(random());
        ASSERT_TRUE(stamps.put(id, stamp));
        if (id > last || model.contains(id)) model[id] = stamp;
        last = std::max(last, id);
        const unsigned asked = below(last + 3);
        EXPECT_EQ(stamps.find(asked), model.contains(asked) ? model.at(asked) : DirectoryStamp());
        if (below(2000) == 0) {
            std::vector<unsigned> kept;
            for (unsigned one = 1; one <= last + 2; ++one)
                if (below(3) != 0) kept.push_back(one);
            ASSERT_TRUE(stamps.fit(kept));
            std::map<unsigned, DirectoryStamp> fitted;
            for (const unsigned one : kept) fitted[one] = model[one];
            model = std::move(fitted);
            last = model.rbegin()->first;
        }
        if (below(500) == 0) {
            finish(last);
            ASSERT_TRUE(open(last));
            EXPECT_EQ(stamps.count(), model.size());
            for (const auto& [one, kept] : model) EXPECT_EQ(stamps.find(one), kept);
        }
    }
}

}  // namespace
}  // namespace fscanner
