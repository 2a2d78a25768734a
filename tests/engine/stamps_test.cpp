// What directories looked like when they were read: the file, the rules for believing it, and
// that no directory whose entries changed is taken for unchanged.

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <map>
#include <random>
#include <set>
#include <thread>

#include "engine/cache_user.h"
#include "fscanner/common/time.h"
#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/mountlist.h"
#include "fscanner/engine/cache_files.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/cache_verify.h"
#include "fscanner/fs/fs_inspect.h"
#include "support/child_process.h"
#include "support/format_example.h"
#include "support/permissions.h"
#include "support/private_mounts.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr unsigned kAllOld = 0U - 10;

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
        ASSERT_TRUE(sums.write() && sums.replace());
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
        // What is wrong with it is no damage of the cache.
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

    // With the right checksums: what it says must fit.
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

// ---- In a cache -------------------------------------------------------------

/// A tree with its cache. What the cache has of each directory is compared with the disk.
class StampedCache : public testing::TestWithParam<bool> {
protected:
    using Names = std::set<std::string>;
    struct Known {
        std::string path;
        Names names;
        DirectoryStamp stamp;
    };

    /// Builds anew what lies below.
    void build(const std::string& below = "") const {
        FsQuery query;
        query.addIncludePath((L"*:" + tree.wide(below)).c_str(), true);
        CollectingWriter writer;
        EXPECT_EQ(cache.query(writer, query, kAllOld), 0);
    }
    std::map<unsigned, Known> known() const {
        CacheStore store(L"dirs", L"files", cache.directory().wide().c_str(), false, true);
        EXPECT_EQ(store.lock(), Status::success);
        EXPECT_EQ(store.create(0, FS_CACHE_OPEN), Status::success);
        CacheTree cached(store);
        std::map<unsigned, Known> all;
        std::vector<wchar_t> path(1 << 16);
        forEach(store.directories(), [&](const Fields& record) {
            const unsigned id = record.as<Int32Field>(DIRECTORIES_ID)->value();
            EXPECT_TRUE(cached.findPathById(store.ancestorRecords(), id, path.data(), 1 << 16));
            all[id].path = toMultibyte(path.data());
            const unsigned parent = record.as<Int32Field>(DIRECTORIES_PARENTID)->value();
            all[parent].names.insert(name(record, DIRECTORIES_PATHNAME));
        });
        forEach(store.files(), [&](const Fields& record) {
            all[record.as<Int32Field>(FILES_PATHID)->value()].names.insert(
                name(record, FILES_FILENAME));
        });
        all.erase(0);
        store.close();
        store.unlock();
        readStamps(all);
        return all;
    }
    /// The directories that the stamps call unchanged; each must hold on disk what it holds in
    /// the cache.
    Names unchanged() const {
        Names paths;
        StampTaker taker;
        Directory directory;
        for (const auto& [id, one] : known()) {
            if (directory.openPath(one.path.c_str()) != 0) continue;
            const DirectoryStamp now = taker.take(directory);
            if (!taker.trust() || !isUnchanged(one.stamp, now, taker.trust()->step)) continue;
            Names names;
            for (const auto& entry : fs::directory_iterator(one.path))
                names.insert(entry.path().filename());
            EXPECT_EQ(names, one.names) << one.path;
            paths.insert(one.path);
        }
        return paths;
    }
    /// What a verification of the tree below tells, as words: "changed a/b".
    Names stale(const std::string& below = "") const {
        Names words;
        verify(below, [&](const std::string& path, StaleDirectory::State state) {
            const char* const word = state == StaleDirectory::State::changed ? "changed "
                                     : state == StaleDirectory::State::gone  ? "gone "
                                                                             : "covered ";
            words.insert(word + relative(path));
        });
        return words;
    }
    /// Calls `tell` for each stale directory, parents first. Returns how many were looked at.
    template <typename Tell>
    unsigned long long verify(const std::string& below, Tell tell) const {
        CacheStore store(L"dirs", L"files", cache.directory().wide().c_str(), false, true);
        EXPECT_EQ(store.lock(), Status::success);
        EXPECT_EQ(store.create(0, FS_CACHE_OPEN), Status::success);
        store.readStamps();
        CacheTree cached(store);
        RecordSet& record = store.directoryRecords();
        EXPECT_TRUE(
            cached.findPathByName(record, store.ancestorRecords(), tree.wide(below).c_str(), true));
        std::vector<DriveInfo> drives;
        DriveHelper::buildDriveList(drives, mdAllDriveGroup);
        normaliseDriveList(drives);
        const MountMap mounts(drives);
        const GoesOn goesOn = [](auto) { return true; };
        const PathDrive root{PathInfo(tree.wide(below).c_str(), true),
                             *mounts.holding(tree.wide(below))};
        const Verification result = verifyTree(store, record.getFieldAsInt32(DIRECTORIES_ID),
                                               {root, mounts, goesOn, false});
        EXPECT_EQ(result.end, Verification::End::finished);
        DirectoryChain chain(store);
        for (const StaleDirectory& one : result.stale) {
            EXPECT_TRUE(chain.enter(one.id));
            tell(toMultibyte(chain.path()), one.state);
        }
        store.close();
        store.unlock();
        return result.directories;
    }
    /// Those below that a verification finds as they were.
    Names verified(const std::string& below) const {
        Names good;
        for (const auto& [id, one] : known())
            if (isBelow(one.path, tree.path(below))) good.insert(one.path);
        verify(below, [&](const std::string& path, StaleDirectory::State state) {
            if (state == StaleDirectory::State::changed)
                good.erase(path);
            else
                std::erase_if(good, [&](const auto& one) { return isBelow(one, path); });
        });
        return good;
    }
    static bool isBelow(const std::string& path, const std::string& directory) {
        return (path + '/').starts_with(directory + '/');
    }
    std::string relative(const std::string& path) const {
        return path == tree.path() ? "" : path.substr(tree.path().size() + 1);
    }
    Names paths(std::initializer_list<const char*> below) const {
        Names names;
        for (const char* one : below) names.insert(tree.path(one));
        return names;
    }
    /// Until the times of now are not racy any more.
    static void wait() { std::this_thread::sleep_for(std::chrono::milliseconds(40)); }
    std::string file() const { return cache.directory().path("dirs.stamps"); }

    TempTree tree{GetParam() ? memoryDirectory() : fs::temp_directory_path()};
    CacheUser cache;

private:
    template <typename Visit>
    static void forEach(FS_Table& table, Visit visit) {
        Fields record(table.schema());
        unsigned id = 0;
        for (bool more = table.moveFirst(id); more; more = table.moveNext(id)) {
            EXPECT_TRUE(table.read(id, record));
            visit(record);
        }
    }
    static std::string name(const Fields& record, unsigned field) {
        return toMultibyte(std::wstring(record.as<TextField>(field)->view()));
    }
    void readStamps(std::map<unsigned, Known>& all) const {
        const TempTree& place = cache.directory();
        SumsFile sums(place.wide("dirs.sums"));
        DirectoryStamps stamps;
        unsigned counter = 0;
        EXPECT_TRUE(sums.load() && readCounter(place.wide("dirs.counter"), counter));
        if (!stamps.open(place.wide("dirs.stamps"), sums, counter)) return;
        for (auto& [id, one] : all) one.stamp = stamps.find(id);
    }
};

TEST_P(StampedCache, EachDirectoryOfATreeHasAStampOfItsReading) {
    for (const char* one : {"a/f", "a/b/g", "c/h"}) tree.file(one);
    tree.directory("a/empty");
    wait();
    build("a");
    EXPECT_EQ(unchanged(), paths({"a", "a/b", "a/empty"}));
    build();
    EXPECT_EQ(unchanged(), paths({"", "a", "a/b", "a/empty", "c"}));
    tree.file("a/b/new");
    fs::rename(tree.path("c/h"), tree.path("a/empty/h"));
    EXPECT_EQ(unchanged(), paths({"", "a"}));
    wait();
    // What holds a tree that was removed and built anew is to be looked at again.
    build("a/b");
    EXPECT_EQ(unchanged(), paths({"", "a/b"}));
    build();
    EXPECT_EQ(unchanged(), paths({"", "a", "a/b", "a/empty", "c"}));
}

TEST_P(StampedCache, WhatWasNotWhollySeenHasNone) {
    const PermissionsHold permissions;
    if (!permissions) GTEST_SKIP() << "permissions cannot be made to hold";
    tree.file("a/locked/f");
    tree.file("a/shut/f");
    ASSERT_EQ(::chmod(tree.path("a/locked").c_str(), 0), 0);
    wait();
    build();
    EXPECT_EQ(unchanged(), paths({"", "a", "a/shut"}));
    ASSERT_EQ(::chmod(tree.path("a/locked").c_str(), 0700), 0);
}

TEST_P(StampedCache, FollowTheTables) {
    for (const char* one : {"a/f", "a/b/g", "c/h"}) tree.file(one);
    wait();
    build();
    const auto all = paths({"", "a", "a/b", "c"});
    EXPECT_EQ(unchanged(), all);
    // A search that changes nothing leaves the file alone.
    const std::string before = readWholeFile(file());
    FsQuery query;
    query.addIncludePath((L"*:" + tree.wide()).c_str(), true);
    CollectingWriter writer;
    EXPECT_EQ(cache.query(writer, query, kDay), 0);
    EXPECT_EQ(readWholeFile(file()), before);
    // Without the file, or with that of other tables, all are changed; then they have entries.
    fs::remove(file());
    EXPECT_EQ(unchanged(), Names());
    build("c");
    EXPECT_EQ(unchanged(), paths({"c"}));
    build("a");
    EXPECT_EQ(unchanged(), paths({"a", "a/b", "c"}));
    writeWholeFile(file(), before);
    EXPECT_EQ(unchanged(), Names());
    build();
    EXPECT_EQ(unchanged(), all);
    // Entries of directories that are gone do not pile up.
    for (int i = 0; i < 600; ++i) tree.directory("many/" + std::to_string(i));
    for (int i = 0; i < 12; ++i) build("many");
    EXPECT_LT(fs::file_size(file()), 44U * 4000);

    const auto open = cache.open();
    open->close();
    EXPECT_TRUE(open->remove());
    EXPECT_FALSE(fs::exists(file()));
}

TEST_P(StampedCache, VerificationTellsWhatIsToBeReadAgain) {
    for (const char* one : {"a/f", "a/b/c/g", "a/b/d/h", "e/f/g", "\xC3\xA4/\xFF/f", "x/y/z"})
        tree.file(one);
    std::string deep = "deep";
    for (int i = 0; i < 150; ++i) deep += "/d";
    tree.directory(deep + "/last");
    tree.file("deep/d/d/side/f");
    wait();
    build();
    const auto none = [](const std::string&, StaleDirectory::State) {};
    EXPECT_EQ(stale(), Names());
    EXPECT_EQ(verify("", none), 164U);
    EXPECT_EQ(verify("a/b", none), 3U);

    tree.file("a/b/c/new");
    tree.file("\xC3\xA4/\xFF/new");
    tree.file(deep + "/last/new");
    tree.file("deep/d/d/side/new");
    EXPECT_EQ(stale(), (Names{"changed a/b/c", "changed \xC3\xA4/\xFF", "changed " + deep + "/last",
                              "changed deep/d/d/side"}));
    EXPECT_EQ(stale("a/b"), Names{"changed a/b/c"});
    EXPECT_EQ(stale("e"), Names());
    // A link or a file in the place of a directory, and one that is gone with what it held.
    fs::rename(tree.path("e/f"), tree.path("e/was"));
    tree.link("was", "e/f");
    fs::remove_all(tree.path("x/y"));
    tree.file("x/y");
    fs::rename(tree.path("a/b"), tree.path("moved"));
    EXPECT_EQ(stale("e"), (Names{"changed e", "gone e/f"}));
    EXPECT_EQ(stale("x"), (Names{"changed x", "gone x/y"}));
    EXPECT_EQ(stale("a"), (Names{"changed a", "gone a/b"}));
    EXPECT_EQ(stale("a/b"), Names{"gone a/b"});
    // A directory that came later, into a tree that was built before.
    wait();
    build("moved");
    tree.file("moved/d/new");
    EXPECT_EQ(stale("moved"), Names{"changed moved/d"});
    EXPECT_TRUE(stale().contains("changed moved/d"));
    EXPECT_FALSE(stale().contains("changed moved/c"));
    fs::remove_all(tree.path("moved"));
    EXPECT_TRUE(stale().contains("gone moved"));
    EXPECT_FALSE(stale().contains("gone moved/c"));
    // Without stamps all are to be read.
    fs::remove(file());
    EXPECT_EQ(stale("e"), (Names{"changed e", "gone e/f"}));
    EXPECT_TRUE(stale().contains("changed deep/d/d"));
}

/// A file system that comes or goes changes no directory that holds it.
TEST_P(StampedCache, MountsThatComeAndGo) {
    for (const char* one : {"a/other/under/f", "b/same/under/f", "c/later/f"}) tree.file(one);
    const int status = inChild([this] {
        const std::string other = tree.path("a/other"), same = tree.path("b/same"),
                          later = tree.path("c/later");
        if (!enterPrivateMounts()) return notAllowed;
        if (!mountMemory("server:/export", other) || !mountMemory("tmpfs", same)) return notAllowed;
        tree.file("b/same/g");
        wait();
        build();
        // On a disk the second is of another kind, too, and has a tree of its own.
        EXPECT_EQ(unchanged(), GetParam() ? paths({"", "b", "b/same", "c", "c/later"})
                                          : paths({"", "b/same", "c", "c/later"}));
        if (!mountMemory("server:/export", later)) return notAllowed;
        EXPECT_EQ(stale("c"), Names{"covered c/later"});
        ::umount(other.c_str());
        ::umount(same.c_str());
        EXPECT_EQ(stale("a"), Names{"changed a"});
        EXPECT_EQ(stale("b"),
                  GetParam() ? Names{"changed b/same"} : (Names{"changed b", "changed b/same"}));
        return HasFailure() ? 1 : 0;
    });
    if (status == notAllowed) GTEST_SKIP() << "no private mounts on this machine";
    EXPECT_EQ(status, 0);
}

/// Each directory whose entries changed is among those that the stamps call changed, whatever
/// happens, and with no time between a change, a reading and the next change.
TEST_P(StampedCache, NoChangeGoesUnseen) {
    std::mt19937 random(11);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const auto any = [&](bool directories) {
        std::vector<std::string> found{tree.path()};
        for (const auto& entry : fs::recursive_directory_iterator(tree.path()))
            if (entry.is_directory() == directories) found.push_back(entry.path());
        return found[below(found.size())];
    };
    const auto fresh = [&] { return any(true) + "/" + std::to_string(below(12)); };
    const auto change = [&] {
        std::error_code error;
        const std::string directory = any(true), other = fresh();
        const std::string file = any(false);
        switch (below(9)) {
            case 0:
            case 1:
                if (!fs::exists(other)) writeWholeFile(other, "x");
                break;
            case 2:
            case 3:
                fs::create_directory(other, error);
                break;
            case 4:
                if (file != tree.path()) fs::rename(file, other, error);
                break;
            case 5:
                if (directory != tree.path()) fs::rename(directory, other, error);
                break;
            case 6:
                if (file != tree.path()) fs::remove(file, error);
                break;
            case 7:
                if (directory != tree.path() && below(4) == 0) fs::remove_all(directory, error);
                break;
            default:
                // A time of the past, which was perhaps that of the reading.
                fs::last_write_time(
                    directory,
                    fs::file_time_type::clock::now() - std::chrono::milliseconds(below(50)), error);
        }
    };
    std::size_t seen = 0;
    for (int i = 0; i < 30; ++i) change();
    build();
    for (int round = 0; round < 150 && !HasFailure(); ++round) {
        for (std::size_t i = below(6); i > 0; --i) change();
        if (below(4) == 0) wait();
        if (below(3) == 0) build(below(2) == 0 ? "" : relative(any(true)));
        for (std::size_t i = below(3); i > 0; --i) change();
        const Names same = unchanged();
        seen += same.size();
        EXPECT_EQ(verified(""), same);
    }
    EXPECT_GT(seen, 100U);
}

INSTANTIATE_TEST_SUITE_P(Places, StampedCache, testing::Bool(),
                         [](const auto& place) { return place.param ? "memory" : "disk"; });

}  // namespace
}  // namespace fscanner
