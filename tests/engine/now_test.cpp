// Verified answers: whatever happens in a tree between two queries, and however soon they follow
// each other, an answer from the cache equals that of a scan.

#include "engine/verified_cache.h"

namespace fscanner {
namespace {

TEST_P(VerifiedCache, ReadsAgainWhatChangedAndNothingElse) {
    for (const char* one : {"a/f", "a/b/g", "c/h", "c/d/e/i"}) tree.file(one);
    std::string deep = "deep/\xC3\xA4/\xFF";
    for (int i = 0; i < 150; ++i) deep += "/d";
    tree.directory(deep);
    wait();
    Checks checks;
    EXPECT_EQ(names(), (Answer{"a/f", "a/b/g", "c/h", "c/d/e/i"}));
    EXPECT_EQ(checks.checks, 0U);
    const struct {
        const char* what;
        std::function<void()> change;
        Answer answer;
        unsigned long long changed;  // directories, with those that are gone
    } table[] = {
        {"nothing", [] {}, {"a/f", "a/b/g", "c/h", "c/d/e/i"}, 0},
        {"a new file",
         [&] { tree.file("a/b/new"); },
         {"a/f", "a/b/g", "a/b/new", "c/h", "c/d/e/i"},
         1},
        {"a file that is gone",
         [&] { fs::remove(tree.path("a/f")); },
         {"a/b/g", "a/b/new", "c/h", "c/d/e/i"},
         1},
        {"a subtree that moved",
         [&] { fs::rename(tree.path("c/d"), tree.path("a/d")); },
         {"a/b/g", "a/b/new", "c/h", "a/d/e/i"},
         3},
        {"a file in the place of a directory",
         [&] {
             fs::remove_all(tree.path("a/b"));
             tree.file("a/b");
         },
         {"a/b", "c/h", "a/d/e/i"},
         2},
        {"and the reverse",
         [&] {
             fs::remove(tree.path("a/b"));
             tree.file("a/b/x");
         },
         {"a/b/x", "c/h", "a/d/e/i"},
         1},
        {"a link in the place of a directory",
         [&] {
             fs::remove_all(tree.path("a/d"));
             tree.link("../c", "a/d");
         },
         {"a/b/x", "a/d", "c/h"},
         2},
        {"a new file far down, below names that are no text",
         [&] { tree.file(deep + "/f"); },
         {"a/b/x", "a/d", "c/h", deep + "/f"},
         1},
        {"a tree that is gone",
         [&] { fs::remove_all(tree.path("deep")); },
         {"a/b/x", "a/d", "c/h"},
         2},
        {"other permissions",
         [&] { fs::permissions(tree.path("a"), fs::perms::owner_all); },
         {"a/b/x", "a/d", "c/h"},
         1},
    };
    for (const auto& row : table) {
        row.change();
        wait();
        checks.clear();
        EXPECT_EQ(names(), row.answer) << row.what;
        EXPECT_EQ(checks.changed, row.changed) << row.what;
        EXPECT_EQ(checks.checks, 1U) << row.what;
    }
    // A tree below it, and the directory without the tree.
    tree.file("c/k/l");
    EXPECT_EQ(names("c"), (Answer{"c/h", "c/k/l"}));
    fs::remove_all(tree.path("c"));
    EXPECT_EQ(names("c"), Answer());
    EXPECT_EQ(names(), (Answer{"a/b/x", "a/d"}));
}

/// If nothing changed, nothing is written, although a directory that holds a mount point, or
/// cannot be read, is read each time.
TEST_P(VerifiedCache, WritesNothingWhereNothingChanged) {
    tree.file("a/f");
    wait();
    names();
    const auto before = timesOfCache();
    EXPECT_EQ(names(), Answer{"a/f"});
    EXPECT_EQ(timesOfCache(), before);
    // A time of now is not trusted, but that alone is no reason to write.
    fs::permissions(tree.path("a"), fs::perms::owner_all);
    EXPECT_EQ(names(), Answer{"a/f"});
    EXPECT_EQ(timesOfCache(), before);
}

/// Each change of the cache changes its directory: that is no reason for the next change.
TEST_P(VerifiedCache, ATreeThatHoldsTheCache) {
    tree.file("a/f");
    provider->setOption(FS_OPTION_CACHE_DIRECTORY, tree.path("cache").c_str());
    wait();
    for (const bool changed : {false, true}) {
        if (changed) tree.file("a/g");
        // The files that come with the end of the first change are new to the second query.
        for (int i = 0; i < 2; ++i) names();
        const auto before = timesIn(tree.path("cache"));
        EXPECT_EQ(ask(queryFor("", nullptr)).paths, scan(queryFor("", nullptr)).paths);
        EXPECT_EQ(ask(queryFor("", L"[SIZE]>10 && [FILENAME]==\"*\"")).sized,
                  scan(queryFor("", L"[SIZE]>10 && [FILENAME]==\"*\"")).sized);
        ask(queryFor("", L"[SIZE]>10"));
        EXPECT_EQ(timesIn(tree.path("cache")), before);
    }
}

TEST_P(VerifiedCache, SizesAreThoseOfNow) {
    tree.file("a/small", 10);
    tree.file("a/large", 1000);
    tree.file("b", 10);
    wait();
    names();
    const auto sized = [&](const wchar_t* criteria, unsigned age = kDay) {
        Answer found;
        for (const std::string& one : ask(queryFor("", criteria), age).sized)
            found.insert(one.substr(tree.path().size() + 1));
        return found;
    };
    tree.file("a/small", 2000);
    tree.file("a/large", 5);
    EXPECT_EQ(sized(L"[FILENAME]==\"*\" && [SIZE]>100"), Answer{"a/small 2000"});
    EXPECT_EQ(sized(L"[SIZE]<100 && [FILENAME]==\"l*\""), Answer{"a/large 5"});
    EXPECT_EQ(sized(L"[FILENAME]==\"b\" || [SIZE]>100"), (Answer{"a/small 2000", "b 10"}));
    EXPECT_EQ(sized(L"[FILENAME]==\"large\" && [SIZE]>0"), Answer{"a/large 5"});
    // Stored sizes select the files to examine. The answer has the sizes on disk.
    EXPECT_EQ(sized(L"[SIZE]>100"), Answer());
    EXPECT_EQ(sized(L"[SIZE]<100"), Answer{"b 10"});
    EXPECT_EQ(sized(L"[SIZE]>100", kAllOld), Answer{"a/small 2000"});
    EXPECT_EQ(sized(L"[SIZE]>100"), Answer{"a/small 2000"});
    // A file in the place of another, by a rename or after a removal.
    tree.file("a/new", 3000);
    fs::rename(tree.path("a/new"), tree.path("a/large"));
    fs::remove(tree.path("b"));
    tree.file("b", 500);
    EXPECT_EQ(sized(L"[SIZE]>100"), (Answer{"a/small 2000", "a/large 3000", "b 500"}));
}

/// Where the test may not mount, files and directories change alone.
TEST_P(VerifiedCache, HistoriesGiveTheAnswersOfAScan) {
    const int failed = inChild([this] {
        runHistory(enterPrivateMounts());
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(failed, 0) << "-1: it crashed";
}

/// A query that excludes its own path needs no tree, and changes none.
TEST_P(VerifiedCache, WhatIsExcludedIsLeftAlone) {
    tree.file("a/f");
    wait();
    names();
    tree.file("a/new");
    TreeQuery nothing = queryFor("a", nullptr);
    nothing.addExcludePath((L"*:" + tree.wide("a")).c_str(), true);
    EXPECT_EQ(ask(nothing).paths, Answer());
    // The cache still has the tree, as it was.
    provider->setOption(FS_OPTION_VERIFY, "false");
    EXPECT_EQ(names(), Answer{"a/f"});
}

/// The observer can stop a comparison, or a change of the cache. The cache stays intact.
TEST_P(VerifiedCache, CanBeStopped) {
    class Stopper : public Checks {
    public:
        bool progress(const FsScanProgress&) override { return left == 0 || --left > 0; }
        unsigned left = 0;  // calls before it stops; 0: never
    };
    for (int i = 0; i < 600; ++i) tree.file("d" + std::to_string(i) + "/f");
    wait();
    EXPECT_EQ(names().size(), 600U);
    Stopper stopper;
    for (int i = 0; i < 600; i += 2) tree.file("d" + std::to_string(i) + "/new");
    const TreeQuery query = queryFor("", nullptr);
    for (const unsigned left : {1U, 2U, 5U, 100U}) {
        stopper.left = left;
        SizedWriter writer;
        EXPECT_LT(provider->executeQuery(writer, query, kDay, kMinute), 0) << left;
        EXPECT_EQ(writer.paths, Answer()) << left;
    }
    stopper.left = 0;
    EXPECT_EQ(ask(query).paths, scan(query).paths);
    EXPECT_EQ(stopper.checks, 1U);
}

/// Trees that a session brought up to date answer its next query unchecked, and only that one.
TEST_P(VerifiedCache, AnObjectForSeveralQueries) {
    tree.file("a/f");
    wait();
    names();
    FS_Cache cache(fsCacheTableNames(false).directories.c_str(),
                   fsCacheTableNames(false).files.c_str(), place.wide("cache").c_str(), false,
                   false, true);
    cache.setVerification(true);
    tree.file("a/g");
    ASSERT_EQ(cache.lock(), 0);
    ASSERT_EQ(cache.create(0, FS_CACHE_OPEN), 0);
    const TreeQuery query = queryFor("", nullptr);
    ASSERT_EQ(cache.refresh(query, kMinute, kDay), 0);
    ASSERT_EQ(cache.share(1000), 0);
    SizedWriter first, second;
    EXPECT_EQ(cache.executeQuery(first, query, kMinute, kDay), 0);
    EXPECT_EQ(first.paths, scan(query).paths);
    tree.file("a/h");
    EXPECT_EQ(cache.executeQuery(second, query, kMinute, kDay), FS_CACHE_NEEDS_CHANGE);
    EXPECT_EQ(second.paths, Answer());
    cache.close();
    cache.unlock();
}

/// What could not be read when the cache was built has no stamp: another user may read it.
TEST_P(VerifiedCache, WhatWasNotWhollySeenIsLookedAtAgain) {
    tree.file("a/locked/f");
    fs::permissions(tree.path("a/locked"), fs::perms::none);
    wait();
    if (const PermissionsHold permissions; permissions)
        EXPECT_EQ(names(), Answer());
    else
        GTEST_SKIP() << "permissions cannot be made to hold";
    // Root may read it as it is.
    if (::geteuid() != 0) fs::permissions(tree.path("a/locked"), fs::perms::owner_all);
    EXPECT_EQ(names(), Answer{"a/locked/f"});
}

TEST_P(VerifiedCache, StampsGoWithTheirDirectories) {
    for (int i = 0; i < 600; ++i) tree.directory("many/" + std::to_string(i));
    for (int i = 0; i < 12; ++i) ask(queryFor("many", nullptr), kAllOld);
    const std::wstring table = fsCacheTableNames(false).directories;
    const fs::path file = place.path("cache/" + toMultibyte(table) + ".stamps");
    EXPECT_LT(fs::file_size(file), 44U * 4000);
    FS_Cache cache(table.c_str(), fsCacheTableNames(false).files.c_str(),
                   place.wide("cache").c_str(), false, false, true);
    EXPECT_EQ(cache.create(0, FS_CACHE_OPEN), 0);
    EXPECT_TRUE(cache.close());
    EXPECT_TRUE(cache.remove());
    EXPECT_FALSE(fs::exists(file));
}

/// Stamps that are missing, damaged or of another time cost a reading, and no answer.
TEST_P(VerifiedCache, DamagedStamps) {
    for (const char* one : {"a/f", "a/b/g", "c/h"}) tree.file(one);
    wait();
    names();
    const fs::path cache = place.path("cache");
    std::string file;
    for (const auto& entry : fs::directory_iterator(cache))
        if (entry.path().extension() == ".stamps") file = entry.path();
    const std::string first = readWholeFile(file);
    std::mt19937 random(31);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    for (int i = 0; i < 60 * faultScale() && !HasFailure(); ++i) {
        std::string bytes = readWholeFile(file);
        switch (i % 4) {
            case 0:
                for (std::size_t n = below(4) + 1; n > 0; --n)
                    bytes[below(bytes.size())] ^= static_cast<char>(1 << below(8));
                break;
            case 1:
                bytes.resize(below(2 * bytes.size()));
                break;
            case 2:
                bytes = first;
                break;
            default:
                std::fill_n(bytes.begin() + static_cast<long>(below(bytes.size() / 2)),
                            bytes.size() / 2, '\0');
        }
        if (below(20) == 0)
            fs::remove(file);
        else
            writeWholeFile(file, bytes);
        const std::string changed = "a/b/new" + std::to_string(below(3));
        if (!fs::remove(tree.path(changed))) tree.file(changed);
        const TreeQuery query = queryFor("", nullptr);
        EXPECT_EQ(ask(query).paths, scan(query).paths) << i;
    }
}

/// A small tree in a large cache is answered without reading the whole of it.
TEST_P(VerifiedCache, SmallTreesOfALargeCache) {
    for (int i = 0; i < 9000; ++i) tree.file("large/" + std::to_string(i));
    for (const char* one : {"small/a.h", "small/b/a.c", "small/b/c.h", "small/d/e.h"})
        tree.file(one, 60);
    wait();
    names();
    const auto same = [&](const std::string& below, const wchar_t* criteria,
                          const std::string& excluded) {
        TreeQuery query = queryFor(below, criteria);
        if (!excluded.empty()) query.addExcludePath((L"*:" + tree.wide(excluded)).c_str(), true);
        const SizedWriter expected = scan(query);
        for (const bool verify : {true, false}) {
            provider->setOption(FS_OPTION_VERIFY, verify ? "true" : "false");
            EXPECT_EQ(ask(query).sized, expected.sized) << below << " without " << excluded;
        }
        provider->setOption(FS_OPTION_VERIFY, "true");
        return expected.paths.size();
    };
    EXPECT_EQ(same("small", nullptr, ""), 4U);
    EXPECT_EQ(same("small", L"[FILENAME]==\"*.h\"", ""), 3U);
    EXPECT_EQ(same("small", L"[FILENAME]==\"a*\" && [SIZE]>50", "small/b"), 1U);
    EXPECT_EQ(same("small", L"path([PATHID],[FILENAME])==\"*/b/*\"", ""), 2U);
    EXPECT_EQ(same("small/b", L"[SIZE]>50", ""), 2U);
    EXPECT_EQ(same("small/b", nullptr, "small/b"), 0U);
    tree.file("small/d/new.h", 60);
    fs::remove(tree.path("small/a.h"));
    EXPECT_EQ(names("small"),
              (Answer{"small/b/a.c", "small/b/c.h", "small/d/e.h", "small/d/new.h"}));
    EXPECT_EQ(same("small", L"[FILENAME]==\"*.h\"", ""), 3U);
    // A directory alone, and two trees, one inside the other.
    FsQuery two;
    two.addIncludePath((L"*:" + tree.wide("small")).c_str(), false);
    two.addIncludePath((L"*:" + tree.wide("small/d")).c_str(), true);
    tree.file("small/x");
    EXPECT_EQ(ask(two).paths, scan(two).paths);
    EXPECT_EQ(ask(two).paths.size(), 3U);
}

/// Mounting or unmounting a drive changes no directory.
TEST_P(VerifiedCache, MountsThatComeAndGo) {
    for (const char* one : {"a/m/under", "a/f", "b/g"}) tree.file(one);
    wait();
    withPrivateMounts([this] {
        names();
        const std::string point = tree.path("a/m");
        const auto same = [this] {
            const TreeQuery query = queryFor("", nullptr);
            const Answer expected = scan(query).paths;
            return ask(query).paths == expected && ask(query).paths == expected;
        };
        if (!mountMemory("server:/export", point)) return kNotAllowed;
        EXPECT_TRUE(same()) << "a drive that covers a cached directory";
        // Its directory has no stamp: each query looks into it, and only one for sizes writes.
        tree.file("a/f", 100);
        const auto before = timesOfCache();
        names();
        EXPECT_EQ(timesOfCache(), before);
        EXPECT_EQ(ask(queryFor("", L"[SIZE]>50")).paths, Answer{tree.path("a/f")});
        ::umount(point.c_str());
        EXPECT_TRUE(same()) << "gone";
        if (!mountMemory("tmpfs", point)) return kNotAllowed;
        tree.file("a/m/inside");
        for (int i = 0; i < 70; ++i) tree.directory("a/m/" + std::to_string(i));
        wait();
        EXPECT_TRUE(same()) << "of the same kind, or with a tree of its own";
        wait();
        EXPECT_TRUE(same());
        Checks checks;
        ask(queryFor("", nullptr));
        EXPECT_EQ(checks.walked, 0U) << "what is mounted is as it was";
        ::umount(point.c_str());
        EXPECT_TRUE(same()) << "gone";
        return HasFailure() ? 1 : 0;
    });
}

/// A file system without usable times replaces one with trusted times.
TEST_P(VerifiedCache, AMountOverTheWholeTree) {
    tree.file("a/b/under");
    wait();
    withPrivateMounts([this] {
        // A directory that holds a mount has no stamp, but a directory in it has one.
        const std::string other = tree.path("a/other");
        if (!mountMemory("server:/export", other)) return kNotAllowed;
        EXPECT_EQ(names("a"), Answer{"a/b/under"});
        ::umount(other.c_str());
        if (::mount("none", tree.path("a").c_str(), "ramfs", 0, nullptr) != 0) return kNotAllowed;
        tree.file("a/over");
        EXPECT_EQ(names("a"), Answer{"a/over"});
        ::umount(tree.path("a").c_str());
        EXPECT_EQ(names("a"), Answer{"a/b/under"});
        return HasFailure() ? 1 : 0;
    });
}

/// Files in a directory that may be listed but not searched: their sizes are unknown.
TEST_P(VerifiedCache, FilesThatCanBeExaminedAgain) {
    const PermissionsHold permissions;
    if (!permissions) GTEST_SKIP() << "permissions cannot be made to hold";
    tree.file("a/large", 1000);
    tree.file("a/other");
    ASSERT_EQ(::chmod(tree.path("a").c_str(), 0700), 0);
    Checks checks;
    const auto large = [&](unsigned long long unknown) {
        checks.unknown = 0;
        const Answer found = ask(queryFor("", L"[SIZE]>100")).paths;
        ask(queryFor("", L"[SIZE]<100 && [FILENAME]==\"large\""));
        ask(queryFor("", L"[SIZE]<100"));
        EXPECT_GE(checks.unknown, unknown);
        return found;
    };
    const auto remove = [this](const char* file) {
        ASSERT_EQ(::chmod(tree.path("a").c_str(), 0700), 0);
        fs::remove(tree.path(file));
        ASSERT_EQ(::chmod(tree.path("a").c_str(), 0600), 0);
    };
    ASSERT_EQ(::chmod(tree.path("a").c_str(), 0600), 0);
    EXPECT_EQ(large(3), Answer());
    remove("a/other");
    EXPECT_EQ(large(2), Answer());
    ASSERT_EQ(::chmod(tree.path("a").c_str(), 0700), 0);
    EXPECT_EQ(large(0), Answer{tree.path("a/large")});
    ASSERT_EQ(::chmod(tree.path("a").c_str(), 0600), 0);
    EXPECT_EQ(large(2), Answer());
    ASSERT_EQ(::chmod(tree.path("a").c_str(), 0700), 0);
}

/// A directory of xfs that changes while it is read may give a name twice.
TEST_P(VerifiedCache, ANameThatWasGivenTwiceIsThereOnce) {
    tree.file("a/b/f");
    tree.file("a/g");
    wait();
    names();
    const FsCacheTableNames tables = fsCacheTableNames(false);
    CacheStore store(tables.directories.c_str(), tables.files.c_str(), place.wide("cache").c_str(),
                     false, true);
    ASSERT_EQ(store.lock(), Status::success);
    ASSERT_EQ(store.create(0, FS_CACHE_OPEN), Status::success);
    ASSERT_TRUE(store.beginChanges());
    RecordSet& files = store.filesRecords();
    ASSERT_TRUE(files.moveFirst());
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(files.insert());
    RecordSet& directories = store.directoryRecords();
    CacheTree cached(store);
    ASSERT_TRUE(cached.findPathByName(directories, store.ancestorRecords(),
                                      tree.wide("a/b").c_str(), true));
    directories.setFieldAsInt32(DIRECTORIES_ID, ++store.directoriesIndex());
    EXPECT_TRUE(directories.insert());
    EXPECT_TRUE(store.stamps().put(store.directoriesIndex(), {}));
    store.close();
    store.unlock();
    for (const char* one : {"a/new", "a/b/new"}) tree.file(one);
    EXPECT_EQ(names(), (Answer{"a/b/f", "a/b/new", "a/g", "a/new"}));
}

INSTANTIATE_TEST_SUITE_P(Places, VerifiedCache,
                         testing::Values(Setting{"disk", false, 0}, Setting{"memory", true, 0},
                                         Setting{"threads", true, 4}),
                         [](const auto& setting) { return setting.param.name; });

}  // namespace
}  // namespace fscanner
